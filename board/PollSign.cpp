#include "PollSign.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cstdint>

#include "RealCalls.h"

namespace board {
namespace {

// The application's descriptors have the lowest numbers, as without a board.
constexpr int kOutOfTheWay = 32;

int NewEvent(bool ready) {
  const int low = eventfd(ready ? 1 : 0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (low < 0) return -errno;
  const int high = real::Fcntl(low, F_DUPFD_CLOEXEC, kOutOfTheWay);
  if (high < 0) return low;
  real::Close(low);
  return high;
}

}  // namespace

PollSign::PollSign() : fd_(NewEvent(false)) {}

PollSign::~PollSign() {
  if (fd_ >= 0) real::Close(fd_);
}

int PollSign::Duplicate(bool close_on_exec) const {
  if (fd_ < 0) return fd_;
  const int fd = real::Fcntl(fd_, close_on_exec ? F_DUPFD_CLOEXEC : F_DUPFD, 0);
  return fd < 0 ? -errno : fd;
}

void PollSign::Update(bool ready) {
  if (watched_ && (ready || exact_)) Show(ready);
}

void PollSign::Watch(bool ready) {
  watched_ = true;
  Show(ready);
}

void PollSign::Show(bool ready) {
  if (ready == shown_) return;
  shown_ = ready;
  std::uint64_t count = 1;
  if (ready) {
    real::Write(fd_, &count, sizeof count);
  } else {
    real::Read(fd_, &count, sizeof count);
  }
}

void PollSigns::Update(bool ready) {
  for (PollSign* sign : signs_) Update(*sign, ready);
}

short PollSigns::Watch(PollSign& sign, short now) const {
  if (!implemented_) now = POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM;
  sign.Watch(now != 0);
  return now;
}

void PollSigns::SetPoll(bool implemented) {
  implemented_ = implemented;
  // Whoever waits looks again: he is told too much rather than nothing.
  for (PollSign* sign : signs_) sign->Update(true);
}

void PollSign::Renew() {
  const int fresh = NewEvent(shown_);
  if (fresh < 0) return;
  real::Dup3(fresh, fd_, O_CLOEXEC);
  real::Close(fresh);
}

void PollSign::RenewDescriptor(int fd) const {
  const bool close_on_exec = (real::Fcntl(fd, F_GETFD, 0) & FD_CLOEXEC) != 0;
  real::Dup3(fd_, fd, close_on_exec ? O_CLOEXEC : 0);
}

}  // namespace board
