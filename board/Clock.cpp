#include "Clock.h"

#include <time.h>

#include <atomic>

namespace board {
namespace {

ClockState own;
std::atomic<ClockState*> current{&own};
std::atomic<double> sleep_factor{1.0};

}  // namespace

// Must be safe in a signal handler, because one fills the register page.
std::int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

std::int64_t NowNs() {
  const ClockState& clock = *current.load();
  return MonotonicNs() - clock.power_up_ns.load() + clock.advanced_ns.load();
}

void AdvanceNs(std::int64_t nanoseconds) { current.load()->advanced_ns.fetch_add(nanoseconds); }

void RestartClock() {
  own.advanced_ns = 0;
  own.power_up_ns = MonotonicNs();
  current = &own;
}

void ShareClock(ClockState& state) {
  std::int64_t never = 0;
  state.power_up_ns.compare_exchange_strong(never, MonotonicNs());
  current = &state;
}

void SetSleepFactor(double factor) { sleep_factor = factor < 0 ? 0 : factor; }

double SleepFactor() { return sleep_factor; }

}  // namespace board
