#pragma once

#include <poll.h>

#include <atomic>

namespace bench {

// A driver that always has the next buffer: no kernel and no virtual board is in the way of
// the thread that takes it, unless the kernel's own waiting is wanted. The one made last is
// served.
class Driver {
 public:
  Driver();
  virtual ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Once there are no more buffers; the thread waits for its wake-up then.
  bool IsDone() const { return done_; }

  virtual bool Owns(int descriptor) const = 0;

  // What the driver is asked; the result of the ioctl. False: the device behind it answers.
  virtual bool Answer(unsigned long request, void* argument) = 0;

  // The waiting of the thread for this device and its wake-up; the result of the poll.
  int Wait(pollfd* device_and_wake_up, int timeout);

 protected:
  virtual bool HasNext() = 0;
  virtual bool WaitsInKernel() const { return false; }

 private:
  const int ready_;  // a descriptor that can always be read
  std::atomic<bool> done_{false};
};

}  // namespace bench
