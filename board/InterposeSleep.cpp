// The sleeps of the process.

#include <errno.h>
#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "Clock.h"
#include "Interpose.h"
#include "RealCalls.h"
#include "Transcript.h"

namespace board {
namespace {

// Applies the sleep factor. A factor of 1 changes nothing, not even by rounding.
std::int64_t Scaled(std::int64_t nanoseconds, double factor) {
  if (factor == 1) return nanoseconds;
  const double scaled = static_cast<double>(nanoseconds) * factor;
  return scaled >= static_cast<double>(kMaxNs) ? kMaxNs : static_cast<std::int64_t>(scaled);
}

void NoteSleep(std::int64_t nanoseconds) {
  InBoard(true, [=] {
    Record("sleep", std::to_string(nanoseconds / 1000 + (nanoseconds % 1000 != 0 ? 1 : 0)));
    return 0;
  });
}

// A skipped sleep still lets other threads run and is still a cancellation point. No signal can
// interrupt it.
int SkipSleep(clockid_t clock, std::int64_t nanoseconds) {
  AdvanceNs(nanoseconds);
  sched_yield();
  const timespec none{};
  const int error = real::ClockNanosleep(clock, 0, &none, nullptr);
  return error == EINTR ? 0 : error;
}

// Returns 0, or the error. Both the remaining time and the advance of the board's clock are in the
// caller's unscaled time.
int SleepFor(clockid_t clock, std::int64_t asked, timespec* remaining) {
  if (asked < 0) return EINVAL;
  const double factor = SleepFactor();
  const std::int64_t scaled = Scaled(asked, factor);
  NoteSleep(asked);
  if (scaled == 0) return SkipSleep(clock, asked);
  const timespec request = ToTimespec(scaled);
  timespec left{};
  const int error = real::ClockNanosleep(clock, 0, &request, &left);
  if (error != 0 && error != EINTR) return error;
  const std::int64_t still_scaled = error == 0 ? 0 : ToNs(left);
  const std::int64_t still_asked = std::min(asked, Scaled(still_scaled, 1 / factor));
  const std::int64_t skipped = (asked - still_asked) - (scaled - still_scaled);
  if (skipped > 0) AdvanceNs(skipped);
  if (error != 0 && remaining != nullptr) *remaining = ToTimespec(still_asked);
  return error;
}

int NanosleepAny(const timespec& request, timespec* remaining) {
  if (!Board::PluggedIn()) return real::Nanosleep(&request, remaining);
  return AsSystemCall(-SleepFor(CLOCK_REALTIME, ToNs(request), remaining));
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int usleep(useconds_t microseconds) {
  return board::NanosleepAny(board::ToTimespec(std::int64_t{microseconds} * 1000), nullptr);
}

unsigned sleep(unsigned seconds) {
  timespec remaining{};
  const timespec request{static_cast<time_t>(seconds), 0};
  const int result = board::NanosleepAny(request, &remaining);
  return result == 0 ? 0 : static_cast<unsigned>(remaining.tv_sec);
}

int nanosleep(const timespec* request, timespec* remaining) {
  return board::NanosleepAny(*request, remaining);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining) {
  // Absolute times are passed on unchanged.
  if (!board::Board::PluggedIn() || (flags & TIMER_ABSTIME) != 0) {
    return board::real::ClockNanosleep(clock, flags, request, remaining);
  }
  return board::SleepFor(clock, board::ToNs(*request), remaining);
}

}  // extern "C"
#pragma GCC visibility pop
