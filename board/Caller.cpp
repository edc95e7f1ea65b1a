#include "Caller.h"

#include <errno.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "ProgramSignals.h"
#include "RealCalls.h"

namespace board {
namespace {

struct CallerState {
  int depth = 0;
  int cancel_state = PTHREAD_CANCEL_ENABLE;
  int cancel_type = PTHREAD_CANCEL_DEFERRED;
  bool cancellation_point = false;
  sigset_t signals{};  // blocked
  int error = 0;       // errno
};
thread_local CallerState caller;
thread_local sigset_t signals_before_fork;

// Called through a pointer whose target the compiler does not know. The compiler assumes that
// syscall() does not throw, and would omit the data needed to unwind a cancelled thread.
using RawSyscall = long (*)(long, ...);
RawSyscall volatile raw_syscall = reinterpret_cast<RawSyscall>(&syscall);

// The number of threads inside, and of forks that wait until there are none.
std::atomic<unsigned> inside{0};
std::atomic<unsigned> forks{0};

void GoOutside() {
  if (inside.fetch_sub(1) == 1 && forks != 0) inside.notify_all();
}

void GoInside() {
  inside.fetch_add(1);
  while (const unsigned waiting = forks) {
    GoOutside();
    forks.wait(waiting);
    inside.fetch_add(1);
  }
}

struct Wait {
  long number;
  long arguments[5];
  bool lets_signals_in;  // the wait itself unblocks signals, atomically with its start
};

template <typename Pointer>
long Argument(Pointer* pointer) {
  return reinterpret_cast<long>(pointer);
}

__attribute__((noinline)) long AsTheCallerWould(const Wait& wait) {
  const CallerState outside = caller;
  const bool endable =
      outside.cancel_state == PTHREAD_CANCEL_ENABLE &&
      (outside.cancellation_point || outside.cancel_type == PTHREAD_CANCEL_ASYNCHRONOUS);
  int ignored = 0;
  sigset_t inside_signals{};
  if (outside.depth > 0) {
    GoOutside();
    caller.depth = 0;
    if (!wait.lets_signals_in) pthread_sigmask(SIG_SETMASK, &outside.signals, &inside_signals);
  }
  if (endable) {
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, &ignored);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
  }
  const long result = raw_syscall(wait.number, wait.arguments[0], wait.arguments[1],
                                  wait.arguments[2], wait.arguments[3], wait.arguments[4]);
  const int error = errno;
  if (endable) {
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &ignored);
    // A cancellation may have been sent while the thread could be cancelled, and its signal may
    // still be pending. It could end the thread in any later call. A blocking call of the C library
    // waits for it.
    real::Poll(nullptr, 0, 0);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
    pthread_setcanceltype(outside.cancel_type, &ignored);
  }
  if (outside.depth > 0) {
    if (!wait.lets_signals_in) pthread_sigmask(SIG_SETMASK, &inside_signals, nullptr);
    caller = outside;
    GoInside();
  }
  return result < 0 ? -error : result;
}

}  // namespace

long WaitForChange(std::atomic<std::uint32_t>* word, std::uint32_t seen, const timespec* timeout,
                   bool shared) {
  return AsTheCallerWould(
      {SYS_futex,
       {Argument(reinterpret_cast<std::uint32_t*>(word)), shared ? FUTEX_WAIT : FUTEX_WAIT_PRIVATE,
        static_cast<long>(seen), Argument(timeout), 0},
       false});
}

long WaitForAny(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals) {
  constexpr long kKernelSignalBytes = (_NSIG - 1) / 8;
  if (signals == nullptr) signals = &caller.signals;
  return AsTheCallerWould({SYS_ppoll,
                           {Argument(fds), static_cast<long>(count), Argument(timeout),
                            Argument(signals), kKernelSignalBytes},
                           true});
}

void EnterBoard(bool cancellation_point) {
  // This must come first, because with asynchronous cancellation the thread could end at any line.
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
    caller.error = errno;
    GoInside();
  }
  ++caller.depth;
}

void LeaveBoard() {
  if (--caller.depth > 0) return;
  GoOutside();
  // A handler that runs as soon as its signal is unblocked may call the board.
  const CallerState outside = caller;
  int ignored = 0;
  errno = outside.error;
  pthread_sigmask(SIG_SETMASK, &outside.signals, nullptr);
  pthread_setcanceltype(outside.cancel_type, &ignored);
  pthread_setcancelstate(outside.cancel_state, &ignored);
}

void KeepEverybodyOut() {
  // A handler on this thread would wait for the end of the fork that it interrupts.
  const sigset_t signals = DeferrableSignals();
  pthread_sigmask(SIG_BLOCK, &signals, &signals_before_fork);
  forks.fetch_add(1);
  while (const unsigned busy = inside) inside.wait(busy);
}

void LetEverybodyIn(bool child) {
  if (child) {
    // No other thread exists in the child.
    inside = 0;
    forks = 0;
  } else {
    forks.fetch_sub(1);
    forks.notify_all();
  }
  pthread_sigmask(SIG_SETMASK, &signals_before_fork, nullptr);
}

}  // namespace board
