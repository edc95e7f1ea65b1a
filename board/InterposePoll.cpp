// Waiting for several descriptors at once.

#include <alloca.h>
#include <errno.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <time.h>

#include <algorithm>

#include "Clock.h"
#include "Interpose.h"
#include "RealCalls.h"

namespace board {
namespace {

constexpr std::int64_t kForever = -1;
constexpr short kReadable = POLLIN | POLLRDNORM;
// A sign only shows that a file can be read. For other events the file is polled repeatedly.
constexpr std::int64_t kLookAgainNs = 20'000'000;

struct Look {
  int ready;       // number of the board's ready descriptors, or the negative errno
  bool others;     // some descriptors are not the board's
  bool all_shown;  // the kernel notices when one of the board's becomes ready
};

short ReadyNow(const Entry& entry, short events) {
  if (entry.file == nullptr) return POLLNVAL;
  if (entry.board != Board::Current()) return POLLERR | POLLHUP;
  return entry.file->Ready(events);
}

// Polls the board's files, and prepares the list that the kernel waits for. Not inlined, to keep
// destructors out of the frame that waits.
__attribute__((noinline)) Look LookAtBoard(pollfd* fds, pollfd* for_kernel, nfds_t count,
                                           bool first) {
  Look look{0, false, true};
  for (nfds_t i = 0; i < count; ++i) {
    pollfd& asked = fds[i];
    for_kernel[i] = asked;
    if (!IsBoardDescriptor(asked.fd)) {
      look.others = true;
      continue;
    }
    const Entry entry = Lookup(asked.fd);
    if (first) {
      if (const int error = PlantedFault(entry.device, "poll").error; error != 0) {
        return {-error, false, true};
      }
    }
    asked.revents = ReadyNow(entry, asked.events);
    if (asked.revents != 0) ++look.ready;
    const bool shown = (asked.events & kReadable) != 0;
    look.all_shown = look.all_shown && shown;
    const bool awaited = shown && asked.revents == 0;
    for_kernel[i] = {awaited ? asked.fd : -1, POLLIN, 0};
  }
  return look;
}

// Takes the kernel's results for the descriptors that are not the board's.
int TakeOthers(pollfd* fds, const pollfd* from_kernel, nfds_t count) {
  int ready = 0;
  for (nfds_t i = 0; i < count; ++i) {
    if (IsBoardDescriptor(fds[i].fd)) continue;
    fds[i].revents = from_kernel[i].revents;
    if (fds[i].revents != 0) ++ready;
  }
  return ready;
}

int PollBoard(pollfd* fds, nfds_t count, std::int64_t timeout_ns, const sigset_t* signals) {
  if (count > kMaxDescriptors) return -EINVAL;
  const std::int64_t deadline = timeout_ns > 0 ? MonotonicNs() + timeout_ns : 0;
  auto* for_kernel = static_cast<pollfd*>(alloca(count * sizeof(pollfd)));
  Look look = LookAtBoard(fds, for_kernel, count, true);
  int others = 0;
  for (std::int64_t left = timeout_ns; look.ready + others == 0 && left != 0;) {
    const bool look_again = !look.all_shown && (left < 0 || left > kLookAgainNs);
    const timespec limit = ToTimespec(look_again ? kLookAgainNs : left);
    const bool unlimited = left < 0 && !look_again;
    const long result = WaitForAny(for_kernel, count, unlimited ? nullptr : &limit, signals);
    if (result < 0) return static_cast<int>(result);
    others = TakeOthers(fds, for_kernel, count);
    look = LookAtBoard(fds, for_kernel, count, false);
    if (look.ready + others > 0) return look.ready + others;
    if (timeout_ns > 0) left = std::max(deadline - MonotonicNs(), INT64_C(0));
  }
  if (look.ready < 0 || !look.others) return look.ready;
  real::Poll(for_kernel, count, 0);
  return look.ready + TakeOthers(fds, for_kernel, count);
}

bool AnyOfTheBoard(const pollfd* fds, nfds_t count) {
  return std::any_of(fds, fds + count,
                     [](const pollfd& entry) { return IsBoardDescriptor(entry.fd); });
}

int PollAny(pollfd* fds, nfds_t count, int timeout_ms) {
  if (!AnyOfTheBoard(fds, count)) return real::Poll(fds, count, timeout_ms);
  const std::int64_t timeout_ns = timeout_ms < 0 ? kForever : std::int64_t{timeout_ms} * 1'000'000;
  return AsSystemCall(InBoard(true, [=] { return PollBoard(fds, count, timeout_ns, nullptr); }));
}

int PpollAny(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals) {
  if (!AnyOfTheBoard(fds, count)) return real::Ppoll(fds, count, timeout, signals);
  const std::int64_t timeout_ns = timeout == nullptr ? kForever : ToNs(*timeout);
  if (timeout != nullptr && timeout_ns < 0) return AsSystemCall(-EINVAL);
  return AsSystemCall(InBoard(true, [=] { return PollBoard(fds, count, timeout_ns, signals); }));
}

// For calls that only the kernel answers.
void KeepShown(int fd) {
  if (!IsBoardDescriptor(fd)) return;
  InBoard(false, [=] {
    const Entry entry = Lookup(fd);
    if (entry.file == nullptr || entry.file->Sign() == nullptr) return 0;
    entry.file->Sign()->Exact();
    return int{entry.file->Ready(0)};
  });
}

void KeepShown(int count, const fd_set* descriptors) {
  if (descriptors == nullptr) return;
  for (int fd = 0; fd < std::min(count, FD_SETSIZE); ++fd) {
    if (FD_ISSET(fd, descriptors)) KeepShown(fd);
  }
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int poll(pollfd* fds, nfds_t count, int timeout_ms) {
  return board::PollAny(fds, count, timeout_ms);
}

int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, size_t) {
  return board::PollAny(fds, count, timeout_ms);
}

int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals) {
  return board::PpollAny(fds, count, timeout, signals);
}

int __ppoll_chk(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals,
                size_t) {
  return board::PpollAny(fds, count, timeout, signals);
}

// The kernel answers these calls. It knows whether a file can be read.
int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  board::KeepShown(count, read);
  return board::real::Select(count, read, write, except, timeout);
}

int pselect(int count, fd_set* read, fd_set* write, fd_set* except, const timespec* timeout,
            const sigset_t* signals) {
  board::KeepShown(count, read);
  return board::real::Pselect(count, read, write, except, timeout, signals);
}

int epoll_ctl(int set, int operation, int fd, epoll_event* event) {
  board::KeepShown(fd);
  return board::real::EpollControl(set, operation, fd, event);
}

}  // extern "C"
#pragma GCC visibility pop
