#include "Runnable/UioNotifier.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <unistd.h>

#include <utility>

#include "function/CancellationScope.h"
#include "log/Log.h"

namespace VeltranoSDK {

UioNotifier::UioNotifier(std::string device_path) : device_path_(std::move(device_path)) {}

UioNotifier::~UioNotifier() { CloseDevice(); }

bool UioNotifier::BeforeRun() {
  Trace(__func__);
  CloseDevice();  // of an earlier start
  fd_ = open(device_path_.c_str(), O_RDWR);
  if (fd_ < 0) printf("open \"%s\" failed!\n", device_path_.c_str());
  return fd_ >= 0;
}

void UioNotifier::WaitForInterrupt() {
  const CancellationScope may_end_here;
  [[maybe_unused]] const ssize_t ignored = read(fd_, &interrupt_count_, sizeof interrupt_count_);
}

void UioNotifier::UnmaskInterrupt() {
  const std::uint32_t unmask = 1;
  [[maybe_unused]] const ssize_t ignored = write(fd_, &unmask, sizeof unmask);
  interrupt_count_ = 0;
}

void UioNotifier::CloseDevice() {
  if (fd_ < 0) return;
  // The kernel masks an interrupt when it fires, and opening the device does not
  // unmask it: one that nobody answers any more would be the last one ever.
  if (InterruptIsLeftMasked()) UnmaskInterrupt();
  close(fd_);
  fd_ = -1;
}

bool UioNotifier::InterruptIsLeftMasked() const {
  if (interrupt_count_ != 0) return true;
  pollfd waiting{fd_, POLLIN, 0};
  return poll(&waiting, 1, 0) > 0 && (waiting.revents & POLLIN) != 0;
}

}  // namespace VeltranoSDK
