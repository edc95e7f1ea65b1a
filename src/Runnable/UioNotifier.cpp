#include "Runnable/UioNotifier.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "log/Log.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK {

UioNotifier::UioNotifier(std::string device_path) : device_path_(std::move(device_path)) {}

UioNotifier::~UioNotifier() { CloseDevice(); }

bool UioNotifier::Start() {
  ready_ = false;
  if (!Runnable::Start()) return false;
  ready_.wait(false);
  return true;
}

bool UioNotifier::BeforeRun() {
  Trace(__func__);
  CloseDevice();  // of an earlier start
  fd_ = OpenDevice(device_path_.c_str(), O_RDWR);
  if (fd_ < 0) {
    printf("open \"%s\" failed!\n", device_path_.c_str());
  } else {
    // The kernel masks an interrupt when it fires, until this write. Without it, an interrupt that
    // fired while nobody listened would be the last one.
    UnmaskInterrupt();
  }
  ready_ = true;
  ready_.notify_all();
  return fd_ >= 0;
}

bool UioNotifier::WaitForInterrupt() {
  if (!WaitFor(fd_)) return false;
  std::uint32_t count;
  [[maybe_unused]] const ssize_t ignored =
      Uninterrupted([&] { return read(fd_, &count, sizeof count); });
  return true;
}

void UioNotifier::UnmaskInterrupt() {
  const std::uint32_t unmask = 1;
  [[maybe_unused]] const ssize_t ignored =
      Uninterrupted([&] { return write(fd_, &unmask, sizeof unmask); });
}

void UioNotifier::CloseDevice() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

}  // namespace VeltranoSDK
