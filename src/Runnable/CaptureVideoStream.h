#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "Devices/capture/V4l2Fd.h"
#include "Runnable/Backoff.h"
#include "Runnable/CaptureStatistics.h"
#include "Runnable/ImageReorder.h"
#include "Runnable/Runnable.h"
#include "thread/CallbackSlot.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK {

class CmosSensor;

// The image thread: takes each image, restores the pixel order in place, hands it
// to the application and gives the buffer back to the driver.
class CaptureVideoStream final : public Utility::Runnable {
 public:
  // Width, height, first pixel; the 32-byte header follows the last pixel. The
  // memory is the driver's again when the callback returns.
  using ImageBufCallback = std::function<void(unsigned int, unsigned int, void*)>;

  bool RegisterImageBufCallback(ImageBufCallback callback);
  // Called once, when the first image of an IMX252 arrives.
  bool RegisterCmos252SelfTestSuccessfullyCallback(std::function<void()> callback);

  // Zeroes all image buffers, see V4l2Base::ClearBuf.
  bool VideoBufClear();
  bool SetV4l2Fmt(unsigned int width, unsigned int height);

  // Stops the stream and closes the device, for a thread that was cancelled.
  bool ReleaseResource();

  // Images up to and including this time are not delivered.
  void SetMinTimeStamp(std::uint64_t time_stamp);
  void SetTimeStampHold(bool hold);
  bool TimeStampHold() const { return time_stamp_hold_; }

  // What became of the images.
  CaptureStatistics& statistics() { return statistics_; }

 private:
  bool BeforeRun() override;
  void LoopRun() override;

  bool SetUp(const CmosSensor& sensor);
  void ReportSelfTest();
  Fate HandOver(std::byte* buffer, const CmosSensor& sensor);

  Utility::CallbackSlot<void(unsigned int, unsigned int, void*)> image_callback_;
  DevFOps::V4l2Fd device_;
  const std::string device_path_ = "/dev/video0";
  const unsigned int buffer_count_ = 10;
  Utility::CallbackSlot<void()> self_test_callback_;
  bool self_test_reported_ = false;
  Relaxed<std::uint64_t> min_time_stamp_ = 0;
  Relaxed<bool> time_stamp_hold_ = false;
  ReorderScratch scratch_;
  Utility::Backoff backoff_;
  CaptureStatistics statistics_;
};

}  // namespace VeltranoSDK
