#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "Runnable/Backoff.h"
#include "Runnable/CaptureStatistics.h"
#include "Runnable/Runnable.h"
#include "thread/CallbackSlot.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK {

namespace DevFOps {
class V4l2Base;
}

// What the two capture threads have in common: each takes one buffer after another from its device,
// delivers it and gives it back to the driver. Each reports under its own source file.
class CaptureStream : public Utility::Runnable {
 public:
  // Call after Cancel(): stops the stream and closes the device.
  bool ReleaseResource();

  // Images up to and including this time are not delivered; strips are always delivered.
  void SetMinTimeStamp(std::uint64_t time_stamp);
  void SetTimeStampHold(bool hold);
  bool TimeStampHold() const { return time_stamp_hold_; }

  // Counts what became of the buffers.
  CaptureStatistics& statistics() { return statistics_; }

 protected:
  using Callback = void(unsigned int, unsigned int, void*);

  // what: "image" or "strip", for the log.
  CaptureStream(const char* what, const char* file) : what_(what), file_(file) {}

  void SetDevice(std::shared_ptr<DevFOps::V4l2Base> device);
  std::shared_ptr<DevFOps::V4l2Base> Device() const;  // null and an ERROR line before start-up
  bool OpenDevice(const char* path, unsigned int width, unsigned int height, unsigned int count);
  bool TellReady(bool ready) const;

  virtual bool Ready() const { return device_ != nullptr; }
  virtual Fate HandOver(std::byte* buffer) = 0;
  // Calls the application if it has registered a callback.
  Fate Offer(unsigned int first, unsigned int second, std::byte* buffer);

  Utility::CallbackSlot<Callback> callback_;
  std::shared_ptr<DevFOps::V4l2Base> device_;
  Relaxed<std::uint64_t> min_time_stamp_ = 0;
  CaptureStatistics statistics_;

 private:
  void LoopRun() override;

  void Enter(const char* function, int line = __builtin_LINE()) const {
    Trace(function, file_, line);
  }
  LogError Tell(int line = __builtin_LINE()) const { return LogError(file_, line); }

  const char* const what_;
  const char* const file_;
  Relaxed<bool> time_stamp_hold_ = false;
  mutable std::mutex device_mutex_;  // device_ belongs to the worker; others read it under this
  Utility::Backoff backoff_;
};

}  // namespace VeltranoSDK
