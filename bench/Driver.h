#pragma once

#include <poll.h>

#include <atomic>

namespace bench {

// A driver that always has the next buffer. Neither the kernel nor the virtual board slows down the
// thread that takes it, unless a subclass includes the kernel's wait. The last driver created is
// used.
class Driver {
 public:
  Driver();
  virtual ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Called when there are no more buffers; the thread then waits for its wake-up.
  bool IsDone() const { return done_; }

  virtual bool Owns(int descriptor) const = 0;

  // Answers an ioctl. Returns false to pass it on to the device.
  virtual bool Answer(unsigned long request, void* argument) = 0;

  // Answers the thread's poll for this device and its wake-up.
  int Wait(pollfd* device_and_wake_up, int timeout);

 protected:
  virtual bool HasNext() = 0;
  virtual bool WaitsInKernel() const { return false; }

 private:
  const int ready_;  // a descriptor that is always readable
  std::atomic<bool> done_{false};
};

}  // namespace bench
