#include "Doorbell.h"

#include <errno.h>
#include <linux/futex.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <climits>

#include "RealCalls.h"

namespace board {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

struct CallerState {
  int depth = 0;
  int cancel_state = PTHREAD_CANCEL_ENABLE;
  int cancel_type = PTHREAD_CANCEL_DEFERRED;
  bool cancellation_point = false;
  sigset_t signals{};  // blocked
};
thread_local CallerState caller;

// All but those by which the processor reports a mistake, and a register access.
sigset_t DeferrableSignals() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
    sigdelset(&signals, fault);
  }
  return signals;
}

// Through a pointer the compiler cannot see through: it knows that syscall()
// throws nothing, and would leave out what the unwind of a cancelled thread needs.
using RawSyscall = long (*)(long, ...);
RawSyscall volatile raw_syscall = reinterpret_cast<RawSyscall>(&syscall);

// The thread may end inside: no object with a destructor lives in this frame. Signals
// come through as in a blocking system call, and what their handlers ask of the board
// are calls of their own.
__attribute__((noinline)) long WaitAsTheCallerWould(std::atomic<std::uint32_t>* word,
                                                    std::uint32_t seen, const timespec* timeout) {
  const CallerState outside = caller;
  const bool endable =
      outside.cancel_state == PTHREAD_CANCEL_ENABLE &&
      (outside.cancellation_point || outside.cancel_type == PTHREAD_CANCEL_ASYNCHRONOUS);
  int ignored = 0;
  sigset_t inside{};
  if (outside.depth > 0) {
    caller.depth = 0;
    pthread_sigmask(SIG_SETMASK, &outside.signals, &inside);
  }
  if (endable) {
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, &ignored);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
  }
  const long result = raw_syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word),
                                  FUTEX_WAIT_PRIVATE, seen, timeout, nullptr, 0);
  const int error = errno;
  if (endable) {
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &ignored);
    // A cancellation that saw the thread open to it may be on its way as a signal, and
    // could end it in any later call. The C library's own blocking calls wait for it.
    real::Poll(nullptr, 0, 0);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
    pthread_setcanceltype(outside.cancel_type, &ignored);
  }
  if (outside.depth > 0) {
    pthread_sigmask(SIG_SETMASK, &inside, nullptr);
    caller = outside;
  }
  return result < 0 ? -error : 0;
}

}  // namespace

void Doorbell::Ring() {
  count_.fetch_add(1, std::memory_order_release);
  syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&count_), FUTEX_WAKE_PRIVATE, INT_MAX,
          nullptr, nullptr, 0);
}

bool Doorbell::Wait(std::uint32_t seen, std::int64_t timeout_ns) {
  if (Count() != seen) return true;
  if (timeout_ns < 0) {
    WaitAsTheCallerWould(&count_, seen, nullptr);
    return true;
  }
  const timespec timeout{timeout_ns / kNsPerSecond, timeout_ns % kNsPerSecond};
  return WaitAsTheCallerWould(&count_, seen, &timeout) != -ETIMEDOUT || Count() != seen;
}

void EnterBoard(bool cancellation_point) {
  // Off first: with asynchronous cancellation every further line could be the last.
  int before = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
  if (caller.depth == 0) {
    sigset_t signals_before{};
    const sigset_t signals = DeferrableSignals();
    pthread_sigmask(SIG_BLOCK, &signals, &signals_before);
    caller.signals = signals_before;
    caller.cancel_state = before;
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &caller.cancel_type);
    caller.cancellation_point = cancellation_point;
  }
  ++caller.depth;
}

void LeaveBoard() {
  if (--caller.depth > 0) return;
  // A handler that runs as soon as its signal is let through makes calls of its own.
  const CallerState outside = caller;
  int ignored = 0;
  pthread_sigmask(SIG_SETMASK, &outside.signals, nullptr);
  pthread_setcanceltype(outside.cancel_type, &ignored);
  pthread_setcancelstate(outside.cancel_state, &ignored);
}

}  // namespace board
