#include "Runnable/CaptureStripStream.h"

#include <string.h>

#include <utility>

#include "Devices/capture/V4l2Base.h"
#include "Devices/sensor/CmosSensor.h"
#include "Neighbours.h"
#include "Runnable/StripWalk.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/StripParseProtocol.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

constexpr const char* kName = "CaptureStripStream";

constexpr unsigned int kBufferCount = 18;

constexpr unsigned int kNarrowCountMode = 1;
constexpr unsigned int kNarrowCountBytes = 4;
constexpr unsigned int kNarrowPointBytes = 4;

void LogStrip(unsigned int index, const StripHeader& strip) {
  LogDebug()(
      "strip_index:%d, frameId: %lld, timeStamp: %lld, encoderstamp: %lld, pointCount: %lld ",
      index, static_cast<long long>(strip.frame_id), static_cast<long long>(strip.time_stamp),
      static_cast<long long>(strip.encoder_stamp), static_cast<long long>(strip.point_count));
}

}  // namespace

// Layout of a strip buffer under the current settings.
struct CaptureStripStream::Layout {
  std::size_t buffer_bytes;
  std::size_t count_bytes;
  unsigned int bytes_per_point;

  // The strips lie below this.
  std::size_t CountAt() const { return buffer_bytes - count_bytes; }
  std::size_t MarkerAt() const { return buffer_bytes - DevFOps::kCompletionMarkerBytes; }
  bool LiesIn(std::size_t mapped) const {
    return buffer_bytes <= mapped && buffer_bytes >= DevFOps::kCompletionMarkerBytes &&
           buffer_bytes >= count_bytes;
  }
};

CaptureStripStream::CaptureStripStream() : CaptureStream("strip", __builtin_FILE()) {}

bool CaptureStripStream::RegisterStripBufCallback(StripBufCallback callback) {
  Trace(__func__);
  ReplaceCallback(callback_, std::move(callback));
  return true;
}

bool CaptureStripStream::ResetStripReleaseCount() {
  Trace(__func__);
  strip_release_count_ = 0;
  return true;
}

bool CaptureStripStream::ResetCallbackLostCount() {
  Trace(__func__);
  callback_lost_count_ = 0;
  return true;
}

bool CaptureStripStream::ResetLastFrameId() {
  Trace(__func__);
  last_frame_id_ = 0;
  return true;
}

bool CaptureStripStream::StripBufClear() {
  Trace(__func__);
  ResetLastFrameId();
  statistics_.ExpectOtherIds();
  const auto device = Device();
  if (!device) return false;
  device->ClearBuf();
  return true;
}

bool CaptureStripStream::QV4l2Buf(unsigned int index) {
  Trace(__func__);
  const auto device = Device();
  return device && device->QBuf(index);
}

void CaptureStripStream::SetWriteMemMode(unsigned int mode) {
  Trace(__func__);
  write_mem_mode_ = mode;
}

bool CaptureStripStream::BeforeRun() {
  Trace(__func__);
  if (device_) device_->Close();  // of an earlier start
  return TellReady(SetUp());
}

bool CaptureStripStream::SetUp() {
  series_logic_ = neighbour::Series(kName);
  sensor_ = neighbour::Sensor(kName);
  SetDevice(neighbour::StripDevice(kName));
  return Ready() && OpenDevice("/dev/video1", sensor_->GetStripWidth(), sensor_->GetStripHeight(),
                               kBufferCount);
}

CaptureStripStream::Layout CaptureStripStream::CurrentLayout() const {
  const auto protocol = series_logic_->strip_parse_protocol();
  const std::size_t size = sensor_->GetStripBufferSize();
  if (write_mem_mode_ == kNarrowCountMode) return {size, kNarrowCountBytes, kNarrowPointBytes};
  return {size, protocol->StripCountNumberOfBytes(), protocol->DataNumberOfBytes()};
}

Fate CaptureStripStream::HandOver(std::byte* buffer) {
  const Layout layout = CurrentLayout();
  const bool readable = layout.LiesIn(device_->BufferSize());
  StripWalk walk;
  if (readable) {
    walk = Walk(buffer, layout);
  } else {
    LogError()("a strip buffer of %zu bytes does not lie in the %zu mapped ones",
               layout.buffer_bytes, device_->BufferSize());
  }
  if (walk.strips > 0) last_frame_id_ = walk.last_frame_id;

  const Fate fate = Offer(walk.strips, walk.bytes, buffer);
  if (fate == Fate::kReleased) strip_release_count_ += walk.strips;

  if (!readable) return Fate::kMalformed;
  memset(buffer + layout.MarkerAt(), 0, DevFOps::kCompletionMarkerBytes);
  return walk.complete ? fate : Fate::kMalformed;
}

StripWalk CaptureStripStream::Walk(const std::byte* buffer, const Layout& layout) {
  std::uint32_t count;
  memcpy(&count, buffer + layout.CountAt(), sizeof count);
  const auto walk_over = [&](auto visit) {
    return WalkStrips(buffer, layout.CountAt(), count, layout.bytes_per_point, visit);
  };

  // Consecutive ids are checked in the same walk; others take a second one.
  std::uint64_t first;
  memcpy(&first, buffer, sizeof first);
  std::uint64_t odd = 0;
  const StripWalk walk = walk_over([&odd, first](unsigned int index, const StripHeader& strip) {
    odd |= strip.frame_id ^ (first + index - 1);
  });
  if (odd == 0) {
    statistics_.SawIds(first, walk.strips);
  } else {
    walk_over([this](unsigned int /*index*/, const StripHeader& strip) {
      statistics_.SawId(strip.frame_id);
    });
  }
  if (SomebodyListens(TESSALINE_LOG_DEBUG)) walk_over(LogStrip);
  if (!walk.complete) {
    LogError()("strip %u of %u does not fit into the buffer: byte %u of %zu", walk.strips + 1,
               count, walk.bytes, layout.CountAt());
  }
  return walk;
}

}  // namespace VeltranoSDK
