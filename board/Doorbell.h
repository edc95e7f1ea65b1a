#pragma once

#include <atomic>
#include <cstdint>

namespace board {

// What a blocked call waits on. The waiter reads Count() while it holds the lock
// under which it found nothing to do, lets the lock go, and waits for the count
// to move on; nobody's ring in between is missed.
class Doorbell {
 public:
  std::uint32_t Count() const { return count_.load(std::memory_order_acquire); }
  void Ring();

  // Waits until the count is no longer `seen`, or the timeout (nanoseconds;
  // negative: none) is over. The thread may end in here: see Caller.h. Returns
  // false on timeout.
  bool Wait(std::uint32_t seen, std::int64_t timeout_ns = -1);

 private:
  std::atomic<std::uint32_t> count_{0};
};

}  // namespace board
