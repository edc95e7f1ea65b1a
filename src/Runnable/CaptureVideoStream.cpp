#include "Runnable/CaptureVideoStream.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "Devices/sensor/CmosSensor.h"
#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned kGoneMs = 1000;  // as for the strip thread

struct ImageHeader {
  std::uint64_t frame_id;
  std::uint64_t time_stamp;
  std::uint64_t encoder_stamp;
  std::uint64_t uninterpreted;
};
static_assert(sizeof(ImageHeader) == kImageHeaderBytes);

// All ones: a bus that nobody drove, not a count.
constexpr std::uint64_t kNoFrameId = ~std::uint64_t{0};

}  // namespace

bool CaptureVideoStream::RegisterImageBufCallback(ImageBufCallback callback) {
  Trace(__func__);
  ReplaceCallback(image_callback_, std::move(callback));
  return true;
}

bool CaptureVideoStream::RegisterCmos252SelfTestSuccessfullyCallback(
    std::function<void()> callback) {
  Trace(__func__);
  ReplaceCallback(self_test_callback_, std::move(callback));
  return true;
}

bool CaptureVideoStream::VideoBufClear() {
  Trace(__func__);
  statistics_.ExpectOtherIds();
  device_.ClearBuf();
  return true;
}

bool CaptureVideoStream::SetV4l2Fmt(unsigned int width, unsigned int height) {
  Trace(__func__);
  return device_.SetFmt(width, height);
}

bool CaptureVideoStream::ReleaseResource() {
  Trace(__func__);
  device_.StreamOff();
  if (WaitUntilGone(kGoneMs)) {
    device_.Close();
  } else {
    LogError()("the image thread is still at work, its buffers stay mapped");
  }
  return true;
}

void CaptureVideoStream::SetMinTimeStamp(std::uint64_t time_stamp) {
  Trace(__func__);
  min_time_stamp_ = time_stamp;
}

void CaptureVideoStream::SetTimeStampHold(bool hold) {
  Trace(__func__);
  time_stamp_hold_ = hold;
}

bool CaptureVideoStream::BeforeRun() {
  Trace(__func__);
  const auto sensor = neighbour::Sensor("CaptureVideoStream");
  if (sensor && SetUp(*sensor)) {
    LogInfo()("initialize v4l2 succeffully");
  } else {
    LogError()("initialize v4l2 error!");
  }
  return sensor && device_.SetFmt(sensor->roi_width(), sensor->roi_height());
}

bool CaptureVideoStream::SetUp(const CmosSensor& sensor) {
  const auto [width, height] = sensor.resolution();
  return device_.Open(device_path_) && device_.SetFmt(width, height + 1) &&
         device_.ReqBufs(buffer_count_) && device_.StreamOn();
}

void CaptureVideoStream::LoopRun() {
  Trace(__func__);
  if (!WaitFor(device_.Descriptor())) return;
  std::byte* buffer = device_.DqBuf();
  if (buffer == nullptr) {
    statistics_.DequeueFailed();
    Rest(backoff_.Next());
    return;
  }
  backoff_.Reset();
  statistics_.Dequeued();
  Fate fate = Fate::kMalformed;  // nobody knows its size
  if (const auto sensor = neighbour::Sensor("CaptureVideoStream")) {
    if (sensor->model() == kIMX252) ReportSelfTest();
    fate = HandOver(buffer, *sensor);
  }
  statistics_.Done(fate);
  device_.QBuf();
}

// That an image arrives is what the test is about. Once in the life of the process.
void CaptureVideoStream::ReportSelfTest() {
  if (self_test_reported_) return;
  Deliver([this] {
    if (const auto callback = self_test_callback_.Get()) (*callback)();
  });
  self_test_reported_ = true;
}

Fate CaptureVideoStream::HandOver(std::byte* buffer, const CmosSensor& sensor) {
  const auto [full_width, full_height] = sensor.resolution();
  const unsigned int width = sensor.roi_width();
  const unsigned int height = sensor.roi_height();
  const ImageFrame frame{std::uint64_t{full_width} * full_height, std::uint64_t{width} * height};

  // One line more than the sensor has, for the header.
  const std::size_t frame_bytes = frame.full_pixels + full_width;
  const std::size_t size = std::min(frame_bytes, device_.BufferSize());
  if (!ReorderImage(buffer, size, frame, scratch_)) {
    LogError()("an image of %u x %u does not fit into a frame of %zu bytes", width, height, size);
    return Fate::kMalformed;
  }

  ImageHeader header;
  memcpy(&header, buffer + frame.image_pixels, sizeof header);
  LogDebug()("frameId: %lld, timeStamp: %lld, encoderStamp: %lld \n",
             static_cast<long long>(header.frame_id), static_cast<long long>(header.time_stamp),
             static_cast<long long>(header.encoder_stamp));
  const bool written = header.frame_id != kNoFrameId;
  if (written) statistics_.SawId(header.frame_id);

  Fate fate = Fate::kSuppressed;
  if (header.time_stamp > min_time_stamp_) {
    Deliver([&] {
      const auto callback = image_callback_.Get();
      if (callback) statistics_.Time([&] { (*callback)(width, height, buffer); });
      fate = callback ? Fate::kDelivered : Fate::kReleased;
    });
  }
  return written ? fate : Fate::kMalformed;
}

}  // namespace VeltranoSDK
