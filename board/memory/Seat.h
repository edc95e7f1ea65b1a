#pragma once

#include <optional>

#include "memory/BoardMemory.h"

namespace board {

// The right to be the one user of something among all processes that share the board. The kernel
// keeps it, so it ends with its holder, also when that is killed. Within a process the device
// decides.
class Seat {
 public:
  // What there is one user of.
  enum Number : unsigned { kImages, kStrips, kWatchdog, kSpi };
  Seat(const BoardMemory& memory, unsigned number) : file_(memory.LockFile()), number_(number) {}

  // False: another process has it.
  bool Take();
  // Several processes may sit here together.
  void Join();
  // False: this process has not taken it. The child of a fork does not end its parent's right.
  bool Leave();
  bool TakenElsewhere() const;

 private:
  // The lock's type afterwards; nothing: another process has it.
  std::optional<short> Lock(int command, short type) const;

  const int file_;
  const unsigned number_;
  int holder_ = 0;  // the process that took it
};

}  // namespace board
