#pragma once

namespace VeltranoSDK {

// The hardware watchdog. Once started it resets the board unless it is fed. The descriptor stays
// open for the life of the process, because closing it may disarm the watchdog.
class WatchdogTimer {
 public:
  explicit WatchdogTimer(int timeout_seconds = 30, int setting = 2);
  virtual ~WatchdogTimer() = default;
  WatchdogTimer(const WatchdogTimer&) = delete;
  WatchdogTimer& operator=(const WatchdogTimer&) = delete;

  // Arms it. The countdown starts with the open, even when setting the timeout fails.
  bool Start();
  // One keep-alive.
  bool Feed();

 private:
  int fd_ = -1;
  int timeout_seconds_;  // the driver writes back what it accepted
  [[maybe_unused]] int setting_;
};

}  // namespace VeltranoSDK
