#pragma once

#include <atomic>
#include <string>

#include "Runnable/Runnable.h"

namespace VeltranoSDK {

// A thread that waits for one FPGA interrupt on its UIO device.
//
// When the device cannot be opened, every wait returns at once and every pass reports an interrupt.
class UioNotifier : public Utility::Runnable {
 public:
  // Returns when the device is open; every later interrupt is reported.
  bool Start();

 protected:
  explicit UioNotifier(std::string device_path);
  ~UioNotifier();

  bool BeforeRun() override;

  // Blocks until the interrupt has fired; it stays masked until UnmaskInterrupt(). False when the
  // thread is asked to end.
  bool WaitForInterrupt();
  void UnmaskInterrupt();

  void CloseDevice();

 private:
  const std::string device_path_;
  int fd_ = -1;
  std::atomic<bool> ready_{false};
};

}  // namespace VeltranoSDK
