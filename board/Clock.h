#pragma once

#include <time.h>

#include <cstdint>

namespace board {

// The board's time in nanoseconds since power-up: real time, plus what skipped
// sleeps and free-running triggers have put on top.
std::int64_t NowNs();
void AdvanceNs(std::int64_t nanoseconds);
void RestartClock();

// The process's own time.
std::int64_t MonotonicNs();
constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr timespec ToTimespec(std::int64_t nanoseconds) {
  return {nanoseconds / kNsPerSecond, nanoseconds % kNsPerSecond};
}
// Negative: no valid length of time.
constexpr std::int64_t ToNs(const timespec& time) {
  const bool valid = time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < kNsPerSecond;
  return valid ? time.tv_sec * kNsPerSecond + time.tv_nsec : -1;
}

void SetSleepFactor(double factor);
double SleepFactor();

}  // namespace board
