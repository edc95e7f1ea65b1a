#pragma once

#include <time.h>

#include <atomic>
#include <cstdint>
#include <limits>

namespace board {

// The board's time in nanoseconds since power-up: real time plus skipped sleeps and the steps
// of free-running triggers.
std::int64_t NowNs();
void AdvanceNs(std::int64_t nanoseconds);
void RestartClock();

// The clock of a board that several processes share.
struct ClockState {
  std::atomic<std::int64_t> power_up_ns{0};  // on the monotonic clock
  std::atomic<std::int64_t> advanced_ns{0};
};
// This process's board is a shared one. Its clock starts if it does not run yet.
void ShareClock(ClockState& state);

// Real time, without skipped sleeps or steps.
std::int64_t MonotonicNs();
constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr timespec ToTimespec(std::int64_t nanoseconds) {
  return {nanoseconds / kNsPerSecond, nanoseconds % kNsPerSecond};
}
constexpr auto kMaxNs = std::numeric_limits<std::int64_t>::max();
// The shorter of two waits; negative means for ever.
constexpr std::int64_t Sooner(std::int64_t a, std::int64_t b) {
  if (a < 0) return b;
  if (b < 0) return a;
  return a < b ? a : b;
}
// Returns a negative number if the time is not valid. A time that is too long to represent becomes
// the longest possible one.
constexpr std::int64_t ToNs(const timespec& time) {
  if (time.tv_sec < 0 || time.tv_nsec < 0 || time.tv_nsec >= kNsPerSecond) return -1;
  if (time.tv_sec >= kMaxNs / kNsPerSecond) return kMaxNs;
  return time.tv_sec * kNsPerSecond + time.tv_nsec;
}

void SetSleepFactor(double factor);
double SleepFactor();

}  // namespace board
