#include "Pauses.h"

#include <dlfcn.h>
#include <sys/prctl.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>

#include "Samples.h"
#include "thread/PromptSleeps.h"

namespace {

thread_local bench::Pauses* noted_in = nullptr;

int PromptSlack() {
  const VeltranoSDK::PromptSleeps prompt_sleeps;
  return prctl(PR_GET_TIMERSLACK);
}

int prompt_slack = 0;

}  // namespace

// Overrides the board's function.
#pragma GCC visibility push(default)
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* request,
                               timespec* remaining) {
  static const auto next = reinterpret_cast<int (*)(clockid_t, int, const timespec*, timespec*)>(
      dlsym(RTLD_NEXT, "clock_nanosleep"));
  bench::Pauses* const pauses = noted_in;
  if (pauses == nullptr || (flags & TIMER_ABSTIME) != 0) {
    return next(clock, flags, request, remaining);
  }
  const bool prompt = prctl(PR_GET_TIMERSLACK) == prompt_slack;
  const auto start = bench::Clock::now();
  const int result = next(clock, flags, request, remaining);
  const double slept = bench::Nanoseconds(bench::Clock::now() - start);
  if (!prompt) {
    pauses->waiting += slept;
    return result;
  }
  if (pauses->count == pauses->microseconds.size()) {
    std::fprintf(stderr, "more pauses than there is room for\n");
    std::exit(1);
  }
  const auto microseconds =
      static_cast<unsigned>(request->tv_sec * 1'000'000 + request->tv_nsec / 1000);
  pauses->microseconds[pauses->count++] = microseconds;
  pauses->asked += 1000.0 * microseconds;
  pauses->slept += slept;
  return result;
}
#pragma GCC visibility pop

namespace bench {

PauseRecorder::PauseRecorder(Pauses& into) {
  prompt_slack = PromptSlack();
  noted_in = &into;
}

PauseRecorder::~PauseRecorder() { noted_in = nullptr; }

}  // namespace bench
