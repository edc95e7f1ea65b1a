#include "thread/Pause.h"

#include <errno.h>
#include <time.h>

#include <algorithm>
#include <chrono>

namespace VeltranoSDK {

namespace {

using std::chrono::nanoseconds;

timespec TimeSpec(nanoseconds time) {
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {static_cast<time_t>(whole.count()), static_cast<long>((time - whole).count())};
}

nanoseconds Nanoseconds(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

}  // namespace

void Pause(unsigned int microseconds) {
  nanoseconds left = std::chrono::microseconds(microseconds);
  const auto end = std::chrono::steady_clock::now() + left;
  for (;;) {
    const timespec request = TimeSpec(left);
    timespec remaining{};
    if (clock_nanosleep(CLOCK_MONOTONIC, 0, &request, &remaining) != EINTR) return;
    // The kernel's remainder includes its timer slack. Used alone, it would never reach zero while
    // signals come faster than that.
    left = std::min(Nanoseconds(remaining), end - std::chrono::steady_clock::now());
    if (left <= nanoseconds::zero()) return;
  }
}

}  // namespace VeltranoSDK
