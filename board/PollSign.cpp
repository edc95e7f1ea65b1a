#include "PollSign.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cstdint>

#include "RealCalls.h"

namespace board {
namespace {

int NewEvent(bool ready) { return real::Eventfd(ready ? 1 : 0, EFD_NONBLOCK | EFD_CLOEXEC); }

}  // namespace

PollSign::PollSign() : fd_(NewEvent(false)), error_(fd_.Get() < 0 ? errno : 0) {}

int PollSign::Duplicate(bool close_on_exec) const {
  if (fd_.Get() < 0) return -error_;
  const int fd = real::Fcntl(fd_.Get(), close_on_exec ? F_DUPFD_CLOEXEC : F_DUPFD, 0);
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
    real::Write(fd_.Get(), &count, sizeof count);
  } else {
    real::Read(fd_.Get(), &count, sizeof count);
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
  // Waiters check again. An unnecessary wake-up is better than a missed one.
  for (PollSign* sign : signs_) sign->Update(true);
}

void PollSign::Renew() {
  const int fresh = NewEvent(shown_);
  if (fresh < 0) return;
  real::Dup3(fresh, fd_.Get(), O_CLOEXEC);
  real::Close(fresh);
}

void PollSign::RenewDescriptor(int fd) const {
  const bool close_on_exec = (real::Fcntl(fd, F_GETFD, 0) & FD_CLOEXEC) != 0;
  real::Dup3(fd_.Get(), fd, close_on_exec ? O_CLOEXEC : 0);
}

}  // namespace board
