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
  syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&count_), FUTEX_WAKE_PRIVATE, INT_MAX,
          nullptr, nullptr, 0);
}

bool Doorbell::Wait(std::uint32_t seen, std::int64_t timeout_ns) {
  if (Count() != seen) return true;
  if (timeout_ns < 0) return WaitForChange(&count_, seen, nullptr) != -EINTR || Count() != seen;
  const timespec timeout = ToTimespec(timeout_ns);
  return WaitForChange(&count_, seen, &timeout) != -ETIMEDOUT || Count() != seen;
}

}  // namespace board
