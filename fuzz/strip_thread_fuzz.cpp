// Runs the strip thread with buffers of any content. The input sets the strip count, the point
// counts, the layout and the length of the mapping. Compares what the application, the counters and
// the log receive with a byte-by-byte walk.
#include <errno.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <linux/videodev2.h>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>

#include "DeviceManager.h"
#include "Devices/capture/V4l2BufFactory.h"
#include "Devices/sensor/CmosSensor.h"
#include "Runnable/CaptureStripStream.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "SeriesLogic/StripParseProtocol.h"
#include "support/Require.h"
#include "support/StripReference.h"
#include "support/SystemCalls.h"
#include "tessaline/log.h"

namespace {

using tessaline_fuzz::Require;
using tessaline_fuzz::StripReference;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)

constexpr std::size_t kStripBytes = 1024 * 640;  // of a buffer; the mapped length may differ
constexpr std::array<std::size_t, 6> kMapped{
    kStripBytes, kStripBytes + 13, kStripBytes - 1, kStripBytes / 2, 8, 1};

// Gives a buffer to the thread on request, and waits until the thread returns it.
class StripDriver final : public tessaline_fuzz::SystemCalls {
 public:
  std::byte* Data(std::size_t index) const { return buffers_[index].get(); }

  void WaitForBuffers() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return streaming_; });
  }

  // Returns when the thread has returned the buffer.
  void Process(unsigned index) {
    std::unique_lock lock(mutex_);
    filled_ = static_cast<int>(index);
    changed_.notify_all();
    changed_.wait(lock, [this] { return returned_; });
    returned_ = false;
  }

  int Open(const char* path) override {
    if (std::string_view(path) == "/dev/video1") return kFirstDescriptor;
    errno = ENOENT;
    return -1;
  }
  int Close(int) override { return 0; }
  int Ioctl(int, unsigned long request, void* argument) override {
    std::unique_lock lock(mutex_);
    switch (request) {
      case VIDIOC_QUERYCAP:
        static_cast<v4l2_capability*>(argument)->capabilities = V4L2_CAP_VIDEO_CAPTURE;
        break;
      case VIDIOC_REQBUFS:
        static_cast<v4l2_requestbuffers*>(argument)->count = kMapped.size();
        break;
      case VIDIOC_QUERYBUF: {
        auto& buffer = *static_cast<v4l2_buffer*>(argument);
        buffer.length = static_cast<__u32>(kMapped[buffer.index]);
        buffer.m.offset = buffer.index;
        break;
      }
      case VIDIOC_STREAMON:
        streaming_ = true;
        changed_.notify_all();
        break;
      case VIDIOC_DQBUF:
        if (SignalComesFirst()) return -1;
        changed_.wait(lock, [this] { return filled_ >= 0; });
        static_cast<v4l2_buffer*>(argument)->index = static_cast<__u32>(filled_);
        filled_ = -1;
        break;
      case VIDIOC_QBUF:
        if (!streaming_) break;
        returned_ = true;
        changed_.notify_all();
        break;
      default:
        break;
    }
    return 0;
  }
  // A heap block of exactly this size.
  void* Map(std::size_t length, int, off_t offset) override {
    auto& buffer = buffers_.at(static_cast<std::size_t>(offset));
    buffer = std::make_unique<std::byte[]>(length);
    return buffer.get();
  }
  int Unmap(void*, std::size_t) override { return 0; }
  ssize_t Write(int, const void*, std::size_t) override { return -1; }
  // Answers the poll for the device and for the thread's wake-up, which never occurs.
  int Poll(pollfd* fds, nfds_t count, int timeout) override {
    Require(count == 2 && fds[0].fd == kFirstDescriptor && fds[0].events == POLLIN && timeout < 0,
            "the thread waits for a buffer as long as it takes");
    if (SignalComesFirst()) return -1;
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return filled_ >= 0; });
    fds[0].revents = POLLIN;
    return 1;
  }

 private:
  // Returns true if a signal interrupts the call, which is then repeated.
  bool SignalComesFirst() {
    constexpr unsigned kSeldom = 3;
    if (++waits_ % kSeldom != 0) return false;
    errno = EINTR;
    return true;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool streaming_ = false;
  bool returned_ = false;
  int filled_ = -1;
  unsigned waits_ = 0;  // of the thread
  std::array<std::unique_ptr<std::byte[]>, kMapped.size()> buffers_;
};

// The results of one pass.
struct Seen {
  unsigned errors = 0;
  unsigned calls = 0;
  unsigned strips = 0;
  unsigned bytes = 0;
  void* data = nullptr;
};

Seen seen;
StripDriver* driver;
std::shared_ptr<CaptureStripStream>* strip;

struct Layout {
  unsigned mode;
  bool brightness, continuous;

  std::uint32_t PointBytes() const { return mode == 1 ? 4 : continuous ? 8 : brightness ? 4 : 2; }
  std::size_t CountAt() const { return kStripBytes - (mode == 1 ? 4 : 8); }

  void Set() const {
    const auto protocol = SeriesLogicFactory::GetSeriesLogicInstance()->strip_parse_protocol();
    protocol->SetBrFlag(brightness);
    protocol->SetCFlag(continuous);
    (*strip)->SetWriteMemMode(mode);
  }
};

// Fills a buffer, either with bytes at its start and before the count, or with a regular series of
// strips in between.
void Fill(FuzzedDataProvider& input, const Layout& layout, std::uint8_t* buffer, std::size_t size) {
  memset(buffer, 0, size);
  const std::size_t end = std::min(layout.CountAt(), size);
  std::size_t at = 0;
  const auto points = input.ConsumeIntegralInRange<std::uint64_t>(0, 100);
  for (auto strips = input.ConsumeIntegralInRange<std::uint64_t>(0, 200); strips > 0; --strips) {
    const std::uint64_t header[4] = {strips, 1, 2, points};
    if (end - at < sizeof header + points * layout.PointBytes()) break;
    memcpy(buffer + at, header, sizeof header);
    at += sizeof header + points * layout.PointBytes();
  }
  const auto tail = input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegral<std::uint8_t>());
  if (tail.size() < end) std::copy(tail.begin(), tail.end(), buffer + end - tail.size());
  const auto count = input.ConsumeBool() ? input.ConsumeIntegralInRange<std::uint32_t>(0, 300)
                                         : input.ConsumeIntegral<std::uint32_t>();
  if (layout.CountAt() + sizeof count <= size) {
    memcpy(buffer + layout.CountAt(), &count, sizeof count);
  }
  const auto head = input.ConsumeRemainingBytes<std::uint8_t>();
  std::copy_n(head.begin(), std::min(head.size(), end - at), buffer + at);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  log_set_quiet(true);
  log_add_callback([](log_Event*) { ++seen.errors; }, nullptr, TESSALINE_LOG_ERROR);
  // This product has points of 2, 4 or 8 bytes, and its driver maps the buffers one by one.
  SeriesLogicFactory::InitSeriesLogicBySeries(kSeries24ArmRebuild);
  auto* const devices = DeviceManagerHolder::Instance();
  devices->cmos_sensor_ = SeriesLogicFactory::GetSeriesLogicInstance()->CreateCmosSensor();
  devices->v4l2_buf_ = V4l2BufFactory::CreateV4l2BufBySeries(kSeries21);
  Require(devices->cmos_sensor_->GetStripBufferSize() == kStripBytes, "the size of a buffer");
  driver = new StripDriver;
  strip = new std::shared_ptr<CaptureStripStream>(std::make_shared<CaptureStripStream>());
  (*strip)->Start();
  (*strip)->Detach();
  driver->WaitForBuffers();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const Layout layout{input.ConsumeIntegralInRange(0u, 2u), input.ConsumeBool(),
                      input.ConsumeBool()};
  layout.Set();
  // In most cases the whole buffer is mapped.
  const unsigned index = input.ConsumeIntegralInRange(0u, 9u) % 8 % kMapped.size();
  const std::size_t mapped = kMapped[index];
  auto* const buffer = reinterpret_cast<std::uint8_t*>(driver->Data(index));
  ASAN_UNPOISON_MEMORY_REGION(buffer, mapped);
  const bool listens = !input.ConsumeBool();
  Fill(input, layout, buffer, mapped);

  const bool readable = mapped >= kStripBytes;
  std::uint32_t count = 0;
  if (readable) memcpy(&count, buffer + layout.CountAt(), sizeof count);
  const StripReference expected(buffer, readable ? layout.CountAt() : 0, count,
                                layout.PointBytes());
  std::vector<std::uint8_t> before(buffer, buffer + mapped);
  // The driver's page may end right after the strips. Nothing behind it may be read.
  if (readable) ASAN_POISON_MEMORY_REGION(buffer + kStripBytes, mapped - kStripBytes);

  (*strip)->ResetStripReleaseCount();
  (*strip)->ResetLastFrameId();
  (*strip)->RegisterStripBufCallback(nullptr);
  if (listens) {
    (*strip)->RegisterStripBufCallback([](unsigned strips, unsigned bytes, void* first) {
      ++seen.calls;
      seen.strips = strips;
      seen.bytes = bytes;
      seen.data = first;
    });
  }
  seen = {};
  driver->Process(index);

  ASAN_UNPOISON_MEMORY_REGION(buffer, mapped);
  Require(seen.errors == (readable && expected.complete ? 0 : 1), "one line about what is wrong");
  const auto strips = static_cast<unsigned>(expected.strips.size());
  if (listens) {
    Require(seen.calls == 1 && seen.data == buffer, "the buffer is delivered once, in place");
    Require(seen.strips == strips && seen.bytes == expected.bytes, "the whole strips of it");
    Require((*strip)->StripReleaseCount() == 0, "none is dropped");
  } else {
    Require(seen.calls == 0 && (*strip)->StripReleaseCount() == strips, "all are dropped");
  }
  Require((*strip)->LastFrameId() == expected.LastFrame(), "the last frame is known");
  if (readable) memset(&before[kStripBytes - 8], 0, 8);
  Require(memcmp(before.data(), buffer, mapped) == 0, "only the marker is cleared");
  return 0;
}
