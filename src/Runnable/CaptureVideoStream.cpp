#include "Runnable/CaptureVideoStream.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "Devices/capture/V4l2Fd.h"
#include "Devices/sensor/CmosSensor.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "tessaline/frames.h"

namespace VeltranoSDK {

namespace {

constexpr const char* kName = "CaptureVideoStream";

constexpr unsigned int kBufferCount = 10;

// All ones: an undriven bus, not an id.
constexpr std::uint64_t kNoFrameId = ~std::uint64_t{0};

}  // namespace

CaptureVideoStream::CaptureVideoStream() : CaptureStream("image", __builtin_FILE()) {
  // Set once: the image device does not depend on the product.
  SetDevice(std::make_shared<DevFOps::V4l2Fd>());
}

bool CaptureVideoStream::RegisterImageBufCallback(ImageBufCallback callback) {
  Trace(__func__);
  ReplaceCallback(callback_, std::move(callback));
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
  device_->ClearBuf();
  return true;
}

bool CaptureVideoStream::SetV4l2Fmt(unsigned int width, unsigned int height) {
  Trace(__func__);
  return device_->SetFmt(width, height);
}

bool CaptureVideoStream::BeforeRun() {
  Trace(__func__);
  const auto sensor = neighbour::Sensor(kName);
  TellReady(sensor && SetUp(*sensor));
  return sensor && device_->SetFmt(sensor->roi_width(), sensor->roi_height());
}

bool CaptureVideoStream::SetUp(const CmosSensor& sensor) {
  const auto [width, height] = sensor.resolution();
  return OpenDevice("/dev/video0", width, height + 1, kBufferCount);
}

// The test only asks whether an image arrives. Reported once per process.
void CaptureVideoStream::ReportSelfTest() {
  if (self_test_reported_) return;
  Deliver([this] {
    if (const auto callback = self_test_callback_.Get()) (*callback)();
  });
  self_test_reported_ = true;
}

Fate CaptureVideoStream::HandOver(std::byte* buffer) {
  const auto sensor = neighbour::Sensor(kName);
  if (!sensor) return Fate::kMalformed;  // its size is unknown
  if (sensor->model() == kIMX252) ReportSelfTest();
  const auto [full_width, full_height] = sensor->resolution();
  const unsigned int width = sensor->roi_width();
  const unsigned int height = sensor->roi_height();
  const ImageFrame frame{std::uint64_t{full_width} * full_height, std::uint64_t{width} * height};

  // One line more than the sensor has, for the header.
  const std::size_t frame_bytes = frame.full_pixels + full_width;
  const std::size_t size = std::min(frame_bytes, device_->BufferSize());
  if (!ReorderImage(buffer, size, frame, scratch_)) {
    LogError()("an image of %u x %u does not fit into a frame of %zu bytes", width, height, size);
    return Fate::kMalformed;
  }

  tessaline_image_header header;
  memcpy(&header, buffer + frame.image_pixels, sizeof header);
  LogDebug()("frameId: %lld, timeStamp: %lld, encoderStamp: %lld \n",
             static_cast<long long>(header.frame_id), static_cast<long long>(header.time_stamp),
             static_cast<long long>(header.encoder_stamp));
  const bool written = header.frame_id != kNoFrameId;
  if (written) statistics_.SawId(header.frame_id);

  const bool wanted = header.time_stamp > min_time_stamp_;
  const Fate fate = wanted ? Offer(width, height, buffer) : Fate::kSuppressed;
  return written ? fate : Fate::kMalformed;
}

}  // namespace VeltranoSDK
