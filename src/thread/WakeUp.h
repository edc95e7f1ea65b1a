#pragma once

namespace VeltranoSDK {

// A descriptor that becomes readable after Ring(); ends a wait for a device.
class WakeUp {
 public:
  WakeUp() = default;
  ~WakeUp();
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;

  // Throws std::system_error when the process has no descriptor left.
  void Open();
  void Close();

  // May be called from any thread and from a signal handler while it is open.
  void Ring() const;

  int descriptor() const { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace VeltranoSDK
