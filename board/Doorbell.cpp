#include "Doorbell.h"

#include <errno.h>
#include <linux/futex.h>
#include <pthread.h>
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
};
thread_local CallerState caller;

// Through a pointer the compiler cannot see through: it knows that syscall()
// throws nothing, and would leave out what the unwind of a cancelled thread needs.
using RawSyscall = long (*)(long, ...);
RawSyscall volatile raw_syscall = reinterpret_cast<RawSyscall>(&syscall);

// The thread may end inside: no object with a destructor lives in this frame.
__attribute__((noinline)) long WaitAsTheCallerWould(std::atomic<std::uint32_t>* word,
                                                    std::uint32_t seen, const timespec* timeout) {
  const bool endable =
      caller.cancel_state == PTHREAD_CANCEL_ENABLE &&
      (caller.cancellation_point || caller.cancel_type == PTHREAD_CANCEL_ASYNCHRONOUS);
  int ignored = 0;
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
    pthread_setcanceltype(caller.cancel_type, &ignored);
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
  if (caller.depth++ > 0) return;
  caller.cancel_state = before;
  pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &caller.cancel_type);
  caller.cancellation_point = cancellation_point;
}

void LeaveBoard() {
  if (--caller.depth > 0) return;
  int ignored = 0;
  const int state = caller.cancel_state;
  pthread_setcanceltype(caller.cancel_type, &ignored);
  pthread_setcancelstate(state, &ignored);
}

}  // namespace board
