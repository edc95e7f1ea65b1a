#include "Interrupt.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

namespace tool {
namespace {

std::atomic<int> interrupts = 0;

void OnInterrupt(int signal) {
  if (interrupts.fetch_add(1) > 0) _exit(128 + signal);
}

}  // namespace

void CatchInterrupts() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool Interrupted() { return interrupts > 0; }

// Until a point in time: the virtual board scales the other kind of sleep.
bool PauseFor(std::chrono::milliseconds time) {
  constexpr long kNsPerSecond = 1'000'000'000;
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  const long ns = until.tv_nsec + static_cast<long>(time.count() % 1000) * 1'000'000;
  until.tv_sec += time.count() / 1000 + ns / kNsPerSecond;
  until.tv_nsec = ns % kNsPerSecond;
  while (!Interrupted() &&
         clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
  return Interrupted();
}

}  // namespace tool
