#pragma once

#include <time.h>

#include <cstdint>
#include <limits>

namespace board {

// The board's time in nanoseconds since power-up: real time plus skipped sleeps and the steps
// of free-running triggers.
std::int64_t NowNs();
void AdvanceNs(std::int64_t nanoseconds);
void RestartClock();

// The process's own time.
std::int64_t MonotonicNs();
constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr timespec ToTimespec(std::int64_t nanoseconds) {
  return {nanoseconds / kNsPerSecond, nanoseconds % kNsPerSecond};
}
constexpr auto kMaxNs = std::numeric_limits<std::int64_t>::max();
// Negative: not a valid time. A time too long to count becomes the longest possible.
constexpr std::int64_t ToNs(const timespec& time) {
  if (time.tv_sec < 0 || time.tv_nsec < 0 || time.tv_nsec >= kNsPerSecond) return -1;
  if (time.tv_sec >= kMaxNs / kNsPerSecond) return kMaxNs;
  return time.tv_sec * kNsPerSecond + time.tv_nsec;
}

void SetSleepFactor(double factor);
double SleepFactor();

}  // namespace board
