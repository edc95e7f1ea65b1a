// What a blocked call waits on.
//
// The trick is a counter instead of a flag. A waiter finds nothing to do while it holds its
// lock, reads Count() under that same lock, releases it, and waits until the count has
// moved on. A ring between the unlock and the wait changes the count, so none is missed, and
// Ring() needs no lock. The wait is a futex on the counter.
#pragma once

#include <atomic>
#include <cstdint>

namespace board {

class Doorbell {
 public:
  std::uint32_t Count() const { return count_.load(std::memory_order_acquire); }
  void Ring();

  // Waits until the count is no longer `seen`, or until the timeout (nanoseconds; negative:
  // none). Returns false on timeout and, without a timeout, when a signal handler ran that was
  // installed without SA_RESTART. The thread may end in here, see Caller.h.
  bool Wait(std::uint32_t seen, std::int64_t timeout_ns = -1);

 private:
  std::atomic<std::uint32_t> count_{0};
};

}  // namespace board
