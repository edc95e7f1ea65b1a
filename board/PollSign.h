#pragma once

#include <atomic>
#include <vector>

#include "PrivateDescriptor.h"

namespace board {

// Shows the kernel whether an open file is ready, so that a thread can wait for it among
// ordinary descriptors. It is an eventfd that is readable while the file is ready; the file's
// descriptors are duplicates of it.
//
// A file that no thread polls costs no system call. A polled file costs one when it becomes ready,
// and another when a later call finds that it is no longer ready. Callers that use only the kernel
// (select, epoll) must not see that delay. Exact() avoids it.
class PollSign {
 public:
  PollSign();
  PollSign(const PollSign&) = delete;
  PollSign& operator=(const PollSign&) = delete;

  // Returns a new descriptor for the file, or the negative errno.
  int Duplicate(bool close_on_exec) const;

  // Call both under the lock that guards the file's readiness. Call Update when the file becomes
  // ready or stops being ready. Call Watch when a caller polls the file and will wait if it is not
  // ready.
  void Update(bool ready);
  void Watch(bool ready);

  // After the next Watch(), the sign is always correct.
  void Exact() { exact_ = true; }

  // For the child of a fork, which must not wake waiters in the parent. Renew creates a new sign,
  // and RenewDescriptor moves one of the file's descriptors to it.
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
  // Returns what poll reports for a file that is ready for `now`. Its sign is watched from then on.
  short Watch(PollSign& sign, short now) const;

  // If the driver does not implement poll, all files are ready for everything.
  void SetPoll(bool implemented);

 private:
  std::vector<PollSign*> signs_;
  bool implemented_ = true;
};

}  // namespace board
