#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "thread/SignalMask.h"

namespace VeltranoSDK {

// For the thread that ends the process. Limits every wait for another thread to this moment plus
// its grace: how long handlers take is unknown.
void EndWaitsBy(std::chrono::steady_clock::time_point last_moment);

std::chrono::steady_clock::time_point LastMomentOfWaits();

struct Patience {
  std::chrono::milliseconds usually;
  // Granted even when other waits have used up the time.
  std::chrono::milliseconds grace{0};
};

// Waits until done() returns true; false when the patience has run out first. done() is called
// under the lock. Locks are held with signals blocked, so the wait is cut into slices, and signals
// are delivered between them.
template <typename Done>
bool WaitInterruptibly(std::mutex& mutex, std::condition_variable& changed, Patience patience,
                       Done done) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kSlice{20};
  const auto start = Clock::now();
  for (;;) {
    const SignalsBlocked no_handler_here;
    std::unique_lock lock(mutex);
    const auto last_moment =
        std::min(start + patience.usually, std::max(start + patience.grace, LastMomentOfWaits()));
    const bool is_done =
        changed.wait_until(lock, std::min(last_moment, Clock::now() + kSlice), done);
    if (is_done || Clock::now() >= last_moment) return is_done;
  }
}

}  // namespace VeltranoSDK
