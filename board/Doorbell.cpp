#include "Doorbell.h"

#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

#include "Caller.h"
#include "Clock.h"

namespace board {

void Doorbell::Ring() {
  count_.fetch_add(1, std::memory_order_release);
  const int wake = reach_ == Reach::kProcess ? FUTEX_WAKE_PRIVATE : FUTEX_WAKE;
  syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&count_), wake, INT_MAX, nullptr, nullptr, 0);
}

bool Doorbell::Wait(std::uint32_t seen, std::int64_t timeout_ns) {
  if (Count() != seen) return true;
  const bool shared = reach_ == Reach::kBoard;
  if (timeout_ns < 0) {
    return WaitForChange(&count_, seen, nullptr, shared) != -EINTR || Count() != seen;
  }
  const timespec timeout = ToTimespec(timeout_ns);
  return WaitForChange(&count_, seen, &timeout, shared) != -ETIMEDOUT || Count() != seen;
}

}  // namespace board
