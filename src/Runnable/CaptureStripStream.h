#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "Runnable/Backoff.h"
#include "Runnable/CaptureStatistics.h"
#include "Runnable/Runnable.h"
#include "thread/CallbackSlot.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK {

namespace DevFOps {
class V4l2Base;
}
class CmosSensor;
class SeriesLogic;
struct StripWalk;

// The strip thread: takes each buffer of packed strips, walks their headers, hands
// the buffer to the application in place and gives it back to the driver.
class CaptureStripStream final : public Utility::Runnable {
 public:
  // Number of strips, their bytes, first strip. The memory is the driver's again
  // when the callback returns.
  using StripBufCallback = std::function<void(unsigned int, unsigned int, void*)>;

  bool RegisterStripBufCallback(StripBufCallback callback);

  bool ResetStripReleaseCount();
  bool ResetCallbackLostCount();
  bool ResetLastFrameId();
  // Zeroes all strip buffers (see V4l2Base::ClearBuf), and the last frame id.
  bool StripBufClear();
  bool QV4l2Buf(unsigned int index);

  // Stops the stream and closes the device, for a thread that was cancelled.
  bool ReleaseResource();

  // The strip layout: in mode 1 points have 4 bytes and the count is narrow.
  void SetWriteMemMode(unsigned int mode);
  void SetMinTimeStamp(std::uint64_t time_stamp);
  void SetTimeStampHold(bool hold);
  bool TimeStampHold() const { return time_stamp_hold_; }

  // Strips nobody was registered for.
  std::uint64_t StripReleaseCount() const { return strip_release_count_; }
  std::uint64_t CallbackLostCount() const { return callback_lost_count_; }
  std::uint64_t LastFrameId() const { return last_frame_id_; }

  // What became of the buffers.
  CaptureStatistics& statistics() { return statistics_; }

 private:
  struct Layout;

  bool BeforeRun() override;
  void LoopRun() override;

  bool SetUp();
  Layout CurrentLayout() const;
  Fate HandOver(std::byte* buffer);
  StripWalk Walk(const std::byte* buffer, const Layout& layout);

  void SetDevice(std::shared_ptr<DevFOps::V4l2Base> device);
  std::shared_ptr<DevFOps::V4l2Base> Device() const;  // null and an ERROR line before start-up

  Utility::CallbackSlot<void(unsigned int, unsigned int, void*)> strip_callback_;
  const std::string device_path_ = "/dev/video1";
  const unsigned int buffer_count_ = 18;
  std::atomic<std::uint64_t> strip_release_count_{0};
  std::atomic<std::uint64_t> callback_lost_count_{0};
  Relaxed<std::uint64_t> last_frame_id_ = 0;
  Relaxed<unsigned int> write_mem_mode_ = 0;
  Relaxed<std::uint64_t> min_time_stamp_ = 0;  // kept for the application's sake, not consulted
  std::shared_ptr<CmosSensor> sensor_;
  std::shared_ptr<DevFOps::V4l2Base> device_;
  std::shared_ptr<SeriesLogic> series_logic_;
  Relaxed<bool> time_stamp_hold_ = false;
  mutable std::mutex device_mutex_;  // device_ is the worker's; others read it under this
  Utility::Backoff backoff_;
  CaptureStatistics statistics_;
};

}  // namespace VeltranoSDK
