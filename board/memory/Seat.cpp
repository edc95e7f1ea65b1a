#include "memory/Seat.h"

#include <fcntl.h>
#include <unistd.h>

#include "RealCalls.h"

namespace board {

// A lock on one byte of the board's file.
bool Seat::Lock(int command, struct flock& lock) const {
  lock.l_whence = SEEK_SET;
  lock.l_start = number_;
  lock.l_len = 1;
  return real::Fcntl(file_, command, reinterpret_cast<long>(&lock)) == 0;
}

bool Seat::Take() {
  struct flock lock {
    .l_type = F_WRLCK
  };
  if (file_ >= 0 && !Lock(F_OFD_SETLK, lock)) return false;
  holder_ = getpid();
  return true;
}

bool Seat::Leave() {
  if (holder_ != getpid()) return false;
  struct flock lock {
    .l_type = F_UNLCK
  };
  if (file_ >= 0) Lock(F_OFD_SETLK, lock);
  holder_ = 0;
  return true;
}

bool Seat::TakenElsewhere() const {
  struct flock lock {
    .l_type = F_WRLCK
  };
  return file_ >= 0 && Lock(F_OFD_GETLK, lock) && lock.l_type != F_UNLCK;
}

}  // namespace board
