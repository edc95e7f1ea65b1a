#pragma once

#include <atomic>
#include <vector>

#include "PrivateDescriptor.h"

namespace board {

// Shows the kernel whether an open file is ready, so that a thread can wait for it among
// ordinary descriptors. It is an eventfd that is readable while the file is ready; the file's
// descriptors are duplicates of it.
//
// A file that nobody waits for costs no system call. A polled file costs one when it becomes
// ready, and one when somebody notices, perhaps later, that it no longer is. Callers that ask
// only the kernel (select, epoll) must not see that delay: Exact() avoids it.
class PollSign {
 public:
  PollSign();
  PollSign(const PollSign&) = delete;
  PollSign& operator=(const PollSign&) = delete;

  // A new descriptor for the file, or the negative errno.
  int Duplicate(bool close_on_exec) const;

  // Call both under the lock that guards the file's readiness. Update: the file has become
  // ready or has stopped being so. Watch: somebody asks, and waits if it is not ready.
  void Update(bool ready);
  void Watch(bool ready);

  // From the next Watch() on the sign is right at any time.
  void Exact() { exact_ = true; }

  // For the child of a fork, which must not wake waiters in the parent: Renew makes a sign of
  // its own, RenewDescriptor moves one of the file's descriptors to it.
  void Renew();
  void RenewDescriptor(int fd) const;

 private:
  void Show(bool ready);

  PrivateDescriptor fd_;
  int error_;  // why there is no descriptor
  bool watched_ = false;
  bool shown_ = false;
  std::atomic<bool> exact_{false};
};

// The signs of a device's open files. Call under the lock that guards their readiness.
class PollSigns {
 public:
  void Add(PollSign& sign) { signs_.push_back(&sign); }
  void Remove(PollSign& sign) { std::erase(signs_, &sign); }

  void Update(bool ready);
  void Update(PollSign& sign, bool ready) const { sign.Update(ready || !implemented_); }
  // What poll reports for a file that is ready for `now`. Its sign is watched from then on.
  short Watch(PollSign& sign, short now) const;

  // Without poll in the driver, all files are ready for everything.
  void SetPoll(bool implemented);

 private:
  std::vector<PollSign*> signs_;
  bool implemented_ = true;
};

}  // namespace board
