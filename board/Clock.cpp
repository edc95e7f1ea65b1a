#include "Clock.h"

#include <time.h>

#include <atomic>

namespace board {
namespace {

std::atomic<std::int64_t> power_up{0};  // on the monotonic clock
std::atomic<std::int64_t> advanced{0};
std::atomic<double> sleep_factor{1.0};

}  // namespace

// Must be safe in a signal handler, because one fills the register page.
std::int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

std::int64_t NowNs() { return MonotonicNs() - power_up.load() + advanced.load(); }

void AdvanceNs(std::int64_t nanoseconds) { advanced.fetch_add(nanoseconds); }

void RestartClock() {
  advanced = 0;
  power_up = MonotonicNs();
}

void SetSleepFactor(double factor) { sleep_factor = factor < 0 ? 0 : factor; }

double SleepFactor() { return sleep_factor; }

}  // namespace board
