// The sleeps of the process.

#include <errno.h>
#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "Clock.h"
#include "Interpose.h"
#include "RealCalls.h"
#include "Transcript.h"

namespace board {
namespace {

// Notes a sleep and returns how much of it is really slept.
std::int64_t ScaledSleep(std::int64_t nanoseconds) {
  return InBoard(true, [=] {
    Record("sleep", std::to_string((nanoseconds + 999) / 1000));
    const auto slept = static_cast<std::int64_t>(static_cast<double>(nanoseconds) * SleepFactor());
    if (slept < nanoseconds) AdvanceNs(nanoseconds - slept);
    return slept;
  });
}

int SleepFor(std::int64_t nanoseconds, timespec* remaining) {
  if (nanoseconds < 0) {
    errno = EINVAL;
    return -1;
  }
  const std::int64_t left = ScaledSleep(nanoseconds);
  // A skipped sleep still lets others run and still is a cancellation point.
  if (left == 0) sched_yield();
  const timespec request = ToTimespec(left);
  return real::Nanosleep(&request, remaining);
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int usleep(useconds_t microseconds) {
  if (!board::Board::PluggedIn()) {
    const timespec request{static_cast<time_t>(microseconds / 1'000'000),
                           static_cast<long>(microseconds % 1'000'000) * 1000};
    return board::real::Nanosleep(&request, nullptr);
  }
  return board::SleepFor(static_cast<std::int64_t>(microseconds) * 1000, nullptr);
}

unsigned sleep(unsigned seconds) {
  timespec remaining{};
  const timespec request{static_cast<time_t>(seconds), 0};
  const int result = board::Board::PluggedIn() ? board::SleepFor(board::ToNs(request), &remaining)
                                               : board::real::Nanosleep(&request, &remaining);
  return result == 0 ? 0 : static_cast<unsigned>(remaining.tv_sec);
}

int nanosleep(const timespec* request, timespec* remaining) {
  if (!board::Board::PluggedIn()) return board::real::Nanosleep(request, remaining);
  return board::SleepFor(board::ToNs(*request), remaining);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining) {
  // An absolute time stays the process's own business.
  if (!board::Board::PluggedIn() || (flags & TIMER_ABSTIME) != 0) {
    return board::real::ClockNanosleep(clock, flags, request, remaining);
  }
  return board::SleepFor(board::ToNs(*request), remaining) == 0 ? 0 : errno;
}

}  // extern "C"
#pragma GCC visibility pop
