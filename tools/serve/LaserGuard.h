#pragma once

#include <sys/types.h>

#include <chrono>

#include "Models.h"

namespace tool::serve {

// A small process beside the daemon that switches the laser off when the daemon ends without having
// done so, whatever ended it: not even SIGKILL leaves the laser on.
class LaserGuard {
 public:
  // Starts it. Throws a Failure.
  explicit LaserGuard(const Model& model);
  // The laser is off; the guard ends.
  ~LaserGuard();
  LaserGuard(const LaserGuard&) = delete;
  LaserGuard& operator=(const LaserGuard&) = delete;

  // Say so before the laser goes on, and after it went off.
  void Tell(bool on) const;
  // Say every now and then that the daemon lives: when it stands still, the laser goes off.
  void Beat();

  // What the small process does: waits on its standard input for the daemon's end.
  static void Watch(const Model& model);

  // False: it has ended, and would not switch the laser off any more.
  bool Lives() const;

 private:
  int pipe_ = -1;
  std::chrono::steady_clock::time_point next_beat_;
  mutable pid_t process_ = -1;  // none: it has ended
};

}  // namespace tool::serve
