#include "devices/UDmaBuf.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "RealCalls.h"
#include "devices/FilePosition.h"
#include "devices/Outcome.h"
#include "devices/SysfsFile.h"
#include "files/FileTree.h"
#include "memory/Shared.h"

namespace board {
namespace {

constexpr std::string_view kName = "udmabuf0";
constexpr std::string_view kDevice = "/dev/udmabuf0";
constexpr std::string_view kFolder = "/sys/devices/platform/tessaline/u-dma-buf/udmabuf0/";

std::string Hex16(std::uint64_t value) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text = "0x";
  for (int shift = 60; shift >= 0; shift -= 4) text += kDigits[value >> shift & 0xF];
  return text;
}

struct SyncSettings {
  std::uint64_t offset = 0;
  std::uint64_t size = UDmaBuf::kBytes;
  std::uint64_t direction = 0;  // 0 both, 1 to the device, 2 from it
  std::uint64_t mode = 1;
};

// An attribute that stores a number.
struct Setting {
  std::string_view name;
  std::uint64_t SyncSettings::*value;
  std::uint64_t maximum;
};

constexpr std::array kSettings{
    Setting{"sync_offset", &SyncSettings::offset, UINT64_MAX},
    Setting{"sync_size", &SyncSettings::size, UINT64_MAX},
    Setting{"sync_direction", &SyncSettings::direction, 2},
    Setting{"sync_mode", &SyncSettings::mode, 7},
};

constexpr std::array<std::string_view, 2> kSyncs{"sync_for_cpu", "sync_for_device"};
constexpr std::array<std::string_view, 2> kFixed{"size", "phys_addr"};

bool IsAttribute(std::string_view name) {
  return std::ranges::find(kFixed, name) != kFixed.end() ||
         std::ranges::find(kSyncs, name) != kSyncs.end() ||
         std::ranges::find(kSettings, name, &Setting::name) != kSettings.end();
}

int RangeError(const SyncSettings& settings) {
  const bool inside =
      settings.offset <= UDmaBuf::kBytes && settings.size <= UDmaBuf::kBytes - settings.offset;
  return inside ? 0 : -EINVAL;
}

}  // namespace

struct UDmaBuf::Buffer {
  explicit Buffer(BoardMemory& memory)
      : pages(memory.NewPages("udmabuf0", kBytes)), settings(memory) {}

  const BoardMemory::Pages pages;
  const Shared<SyncSettings> settings;
};

class UDmaBuf::File : public OpenFile {
 public:
  File(std::shared_ptr<Buffer> buffer, OpenToken token)
      : buffer_(std::move(buffer)), token_(std::move(token)) {}

  ssize_t Read(void* data, std::size_t size) override {
    return position_.Advance(ReadAt(data, size, position_.Get()));
  }
  ssize_t Write(const void* data, std::size_t size) override {
    return position_.Advance(WriteAt(data, size, position_.Get()));
  }
  ssize_t ReadAt(void* data, std::size_t size, off_t offset) override {
    const ssize_t done = real::Pread(buffer_->pages.file, data, Limited(size, offset),
                                     buffer_->pages.offset + offset);
    return done < 0 ? -errno : done;
  }
  ssize_t WriteAt(const void* data, std::size_t size, off_t offset) override {
    const ssize_t done = real::Pwrite(buffer_->pages.file, data, Limited(size, offset),
                                      buffer_->pages.offset + offset);
    return done < 0 ? -errno : done;
  }
  off_t Seek(off_t offset, int whence) override {
    return position_.Seek(offset, whence, static_cast<off_t>(kBytes));
  }

  std::intptr_t Mmap(void* hint, std::size_t length, int protection, int flags,
                     off_t offset) override {
    const std::intptr_t result = Map(hint, length, protection, flags, offset);
    RecordAs(kName, [=] {
      const long error = result < 0 && result > -4096 ? result : 0;
      return "mmap " + std::to_string(length) + " at " + std::to_string(offset) + Outcome(error);
    });
    return result;
  }

 private:
  static std::size_t Limited(std::size_t size, off_t offset) {
    const auto start = static_cast<std::size_t>(offset);
    return start < kBytes ? std::min(size, kBytes - start) : 0;
  }

  std::intptr_t Map(void* hint, std::size_t length, int protection, int flags, off_t offset) const {
    const auto start = static_cast<std::uint64_t>(offset);
    if (start > kBytes || length > kBytes - start) return -EINVAL;
    // The driver maps all pages at once, not page by page on first access.
    void* address = real::Mmap(hint, length, protection, flags | MAP_POPULATE, buffer_->pages.file,
                               buffer_->pages.offset + offset);
    return address == MAP_FAILED ? -errno : reinterpret_cast<std::intptr_t>(address);
  }

  const std::shared_ptr<Buffer> buffer_;
  const OpenToken token_;
  FilePosition position_;
};

UDmaBuf::UDmaBuf(BoardMemory& memory) : buffer_(std::make_shared<Buffer>(memory)) {}

std::string UDmaBuf::Name() const { return std::string(kName); }

bool UDmaBuf::Claims(const std::string& path) const {
  return path == kDevice ||
         (path.starts_with(kFolder) && IsAttribute(std::string_view(path).substr(kFolder.size())));
}

OpenResult UDmaBuf::Open(const std::string& path, int flags) {
  if (path != kDevice) return OpenAttribute(path.substr(kFolder.size()), flags);
  return {std::make_shared<File>(buffer_, CountOpen()), 0};
}

void UDmaBuf::List(FileTree& tree) const {
  const std::string folder(kFolder);
  for (const std::string_view fixed : kFixed) {
    tree.AddFile(folder + std::string(fixed), true, false);
  }
  for (const Setting& setting : kSettings) {
    tree.AddFile(folder + std::string(setting.name), true, true);
  }
  for (const std::string_view sync : kSyncs) tree.AddFile(folder + std::string(sync), true, true);
}

OpenResult UDmaBuf::OpenAttribute(const std::string& name, int flags) {
  SysfsAttribute attribute{.device = Name(), .label = name, .show = nullptr, .store = nullptr};
  for (const Setting& setting : kSettings) {
    if (setting.name != name) continue;
    attribute.show = [buffer = buffer_, setting] {
      return std::to_string((*buffer->settings.Lock()).*setting.value) + '\n';
    };
    attribute.store = [buffer = buffer_, setting](std::string_view text) {
      const auto value = ParseNumber(text);
      if (!value || *value < 0 || static_cast<std::uint64_t>(*value) > setting.maximum) {
        return -EINVAL;
      }
      (*buffer->settings.Lock()).*setting.value = static_cast<std::uint64_t>(*value);
      return 0;
    };
  }
  for (const std::string_view sync : kSyncs) {
    if (sync != name) continue;
    attribute.show = [] { return std::string("0\n"); };
    attribute.store = [buffer = buffer_](std::string_view text) {
      const auto value = ParseNumber(text);
      if (!value || *value < 0) return -EINVAL;
      return *value == 0 ? 0 : RangeError(*buffer->settings.Lock());
    };
  }
  if (name == "size") attribute.show = [] { return std::to_string(kBytes) + '\n'; };
  if (name == "phys_addr") attribute.show = [] { return Hex16(kPhysicalAddress) + '\n'; };
  return OpenSysfs(std::move(attribute), flags, CountOpen());
}

}  // namespace board
