#pragma once

#include <atomic>
#include <vector>

#include "PrivateDescriptor.h"

namespace board {

// Tells the kernel whether an open file is ready, so that a thread can wait for it
// among ordinary descriptors: an eventfd that can be read while the file is ready. The
// file's descriptors are duplicates of it.
//
// A file nobody waits for costs no system call. One that is polled costs one when it
// becomes ready and one when somebody finds it is no longer, which may be some time after
// it was. Who asks the kernel alone (select, epoll) must not see that: Exact().
class PollSign {
 public:
  PollSign();
  PollSign(const PollSign&) = delete;
  PollSign& operator=(const PollSign&) = delete;

  // A new descriptor for the file, or the negative errno.
  int Duplicate(bool close_on_exec) const;

  // Both under the lock that guards what makes the file ready. The file has become ready, or
  // is no longer; somebody asks whether it is, and waits if not.
  void Update(bool ready);
  void Watch(bool ready);

  // From the next Watch() on it is right at any time.
  void Exact() { exact_ = true; }

  // In the child of a fork, which has nothing to say to those who wait in the parent:
  // a sign of its own, and of the file's descriptors one after the other.
  void Renew();
  void RenewDescriptor(int fd) const;

 private:
  void Show(bool ready);

  PrivateDescriptor fd_;
  int error_;  // why there is none
  bool watched_ = false;
  bool shown_ = false;
  std::atomic<bool> exact_{false};
};

// The signs of a device's open files, each from its opening to its close. Under the lock
// that guards what makes them ready.
class PollSigns {
 public:
  void Add(PollSign& sign) { signs_.push_back(&sign); }
  void Remove(PollSign& sign) { std::erase(signs_, &sign); }

  void Update(bool ready);
  void Update(PollSign& sign, bool ready) const { sign.Update(ready || !implemented_); }
  // What poll reports of a file that is ready for `now`, and whose sign is watched then.
  short Watch(PollSign& sign, short now) const;

  // Without poll in the driver all files are ready for everything.
  void SetPoll(bool implemented);

 private:
  std::vector<PollSign*> signs_;
  bool implemented_ = true;
};

}  // namespace board
