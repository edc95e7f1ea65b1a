#include "Devices/capture/UdmaBuf.h"

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <charconv>
#include <utility>

#include "log/Log.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK {

namespace {

constexpr const char* kDevice = "/dev/udmabuf0";

struct AttributeFile {
  const char* path;
  const char* error;
};

constexpr std::array<AttributeFile, 5> kAttributeFiles{{
    {"/sys/class/u-dma-buf/udmabuf0/sync_offset", "sync_offset open failed!"},
    {"/sys/class/u-dma-buf/udmabuf0/sync_size", "sync_size open failed!"},
    {"/sys/class/u-dma-buf/udmabuf0/sync_direction", "sync_direction open failed!"},
    {"/sys/class/u-dma-buf/udmabuf0/sync_for_cpu", "sync_for_cpu open failed!"},
    {"/sys/class/u-dma-buf/udmabuf0/sync_for_device", "sync_for_device open failed!"},
}};
constexpr const char* kSyncModeFile = "/sys/class/u-dma-buf/udmabuf0/sync_mode";

// Decimal, without a newline. A failed write cannot be reported.
void WriteDecimal(int fd, unsigned long value) {
  std::array<char, 24> text;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
  [[maybe_unused]] const ssize_t ignored = Uninterrupted(
      [&] { return write(fd, text.data(), static_cast<std::size_t>(end - text.data())); });
}

}  // namespace

UdmaBuf::UdmaBuf(unsigned long offset, unsigned long size) : offset_(offset), size_(size) {
  Trace(__func__);
  fd_ = OpenDevice(kDevice, O_RDWR);
  if (fd_ < 0) LogError()("UdmaBuf mmap!");
  address_ =
      mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, static_cast<off_t>(offset_));
  if (IsMapped()) {
    LogInfo()("UdmaBuf mmap succuffully!");
    ClearBuf();
  } else {
    LogError()("UdmaBuf mmap failed!");
  }
  static_assert(kAttributeFiles.size() == kCount);
  for (std::size_t i = 0; i < attributes_.size(); ++i) {
    attributes_[i] = OpenDevice(kAttributeFiles[i].path, O_WRONLY);
    if (attributes_[i] < 0) LogError()("%s", kAttributeFiles[i].error);
  }
}

UdmaBuf::~UdmaBuf() { Release(); }

void UdmaBuf::Release() {
  if (fd_ >= 0) close(std::exchange(fd_, -1));
  if (IsMapped()) munmap(std::exchange(address_, MAP_FAILED), size_);
  for (int& attribute : attributes_) {
    if (attribute >= 0) close(std::exchange(attribute, -1));
  }
}

bool UdmaBuf::IsMapped() const { return address_ != MAP_FAILED; }

void UdmaBuf::ClearBuf() {
  if (IsMapped()) memset(address_, 0, size_);
}

void UdmaBuf::SetSyncMode(unsigned char mode) {
  Trace(__func__);
  const int fd = OpenDevice(kSyncModeFile, O_WRONLY);
  if (fd < 0) {
    LogError()("SetSyncMode failed!");
    return;
  }
  WriteDecimal(fd, mode);
  close(fd);
}

void UdmaBuf::Sync(unsigned long size, unsigned long offset, unsigned int direction) {
  WriteDecimal(attributes_[kSyncOffset], offset);
  WriteDecimal(attributes_[kSyncSize], size);
  WriteDecimal(attributes_[kSyncDirection], direction);
  WriteDecimal(attributes_[kSyncForCpu], direction == kFromDevice);
  WriteDecimal(attributes_[kSyncForDevice], direction == kToDevice);
}

}  // namespace VeltranoSDK
