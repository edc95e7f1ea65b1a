#include "memory/Seat.h"

#include <fcntl.h>
#include <unistd.h>

#include "RealCalls.h"

namespace board {

// A lock on one byte of the board's file.
std::optional<short> Seat::Lock(int command, short type) const {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = number_;
  lock.l_len = 1;
  if (real::Fcntl(file_, command, reinterpret_cast<long>(&lock)) != 0) return std::nullopt;
  return lock.l_type;
}

bool Seat::Take() {
  if (file_ >= 0 && !Lock(F_OFD_SETLK, F_WRLCK)) return false;
  holder_ = getpid();
  return true;
}

void Seat::Join() {
  if (file_ >= 0) Lock(F_OFD_SETLK, F_RDLCK);
  holder_ = getpid();
}

bool Seat::Leave() {
  if (holder_ != getpid()) return false;
  if (file_ >= 0) Lock(F_OFD_SETLK, F_UNLCK);
  holder_ = 0;
  return true;
}

bool Seat::TakenElsewhere() const {
  return file_ >= 0 && Lock(F_OFD_GETLK, F_WRLCK).value_or(F_UNLCK) != F_UNLCK;
}

}  // namespace board
