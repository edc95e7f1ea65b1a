// What a blocked call waits on.
//
// It is a counter, not a flag. A waiter that finds nothing to do reads Count() while it still holds
// its lock. It then releases the lock and waits until the count has changed. A ring between the
// unlock and the wait changes the count, so no ring is missed, and Ring() needs no lock. The wait
// is a futex on the counter. A bell in the memory of a shared board wakes other processes, too.
#pragma once

#include <atomic>
#include <cstdint>

namespace board {

class Doorbell {
 public:
  enum class Reach { kProcess, kBoard };
  explicit Doorbell(Reach reach = Reach::kProcess) : reach_(reach) {}

  std::uint32_t Count() const { return count_.load(std::memory_order_acquire); }
  void Ring();

  // Waits until the count is no longer `seen`, or until the timeout (nanoseconds; negative: none).
  // Returns false on timeout. Without a timeout, returns false after a signal handler that was
  // installed without SA_RESTART. The thread may end in this call, see Caller.h.
  bool Wait(std::uint32_t seen, std::int64_t timeout_ns = -1);

 private:
  std::atomic<std::uint32_t> count_{0};
  const Reach reach_;
};

}  // namespace board
