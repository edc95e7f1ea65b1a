// Waiting for several descriptors at once.

#include <errno.h>
#include <poll.h>

#include <vector>

#include "Clock.h"
#include "Interpose.h"
#include "RealCalls.h"

namespace board {
namespace {

constexpr std::int64_t kPollSliceNs = 500'000;

// One look at all descriptors: the board's own and, without waiting, the others.
int PollOnce(pollfd* fds, nfds_t count) {
  std::vector<pollfd> others;
  int ready = 0;
  for (nfds_t i = 0; i < count; ++i) {
    fds[i].revents = 0;
    if (!IsBoardDescriptor(fds[i].fd)) {
      pollfd other = fds[i];
      real::Poll(&other, 1, 0);
      fds[i].revents = other.revents;
    } else if (const Entry entry = Lookup(fds[i].fd); entry.board != Board::Current()) {
      fds[i].revents = POLLERR | POLLHUP;
    } else if (entry.file != nullptr) {
      if (const int error = PlantedFault(entry.device, "poll").error; error != 0) return -error;
      fds[i].revents = entry.file->Ready(fds[i].events);
    }
    if (fds[i].revents != 0) ++ready;
  }
  return ready;
}

int PollBoard(pollfd* fds, nfds_t count, int timeout_ms) {
  const std::int64_t deadline = NowNs() + static_cast<std::int64_t>(timeout_ms) * 1'000'000;
  Doorbell pause;
  for (;;) {
    const int ready = PollOnce(fds, count);
    if (ready != 0) return ready;
    if (timeout_ms >= 0 && NowNs() >= deadline) return 0;
    pause.Wait(pause.Count(), kPollSliceNs);
  }
}

int PollAny(pollfd* fds, nfds_t count, int timeout_ms) {
  bool ours = false;
  for (nfds_t i = 0; i < count; ++i) ours = ours || IsBoardDescriptor(fds[i].fd);
  if (!ours) return real::Poll(fds, count, timeout_ms);
  return AsSystemCall(InBoard(true, [=] { return PollBoard(fds, count, timeout_ms); }));
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

}  // extern "C"
#pragma GCC visibility pop
