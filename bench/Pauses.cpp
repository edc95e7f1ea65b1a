#include "Pauses.h"

#include <dlfcn.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Samples.h"
#include "function/PromptSleeps.h"

namespace {

thread_local bench::Pauses* noted_in = nullptr;

int PromptSlack() {
  const VeltranoSDK::PromptSleeps prompt_sleeps;
  return prctl(PR_GET_TIMERSLACK);
}

int prompt_slack = 0;

}  // namespace

// Stands in front of the board's.
#pragma GCC visibility push(default)
extern "C" int usleep(useconds_t microseconds) {
  static const auto next = reinterpret_cast<int (*)(useconds_t)>(dlsym(RTLD_NEXT, "usleep"));
  bench::Pauses* const pauses = noted_in;
  if (pauses == nullptr) return next(microseconds);
  const bool prompt = prctl(PR_GET_TIMERSLACK) == prompt_slack;
  const auto start = bench::Clock::now();
  const int result = next(microseconds);
  const double slept = bench::Nanoseconds(bench::Clock::now() - start);
  if (!prompt) {
    pauses->waiting += slept;
    return result;
  }
  if (pauses->count == pauses->microseconds.size()) {
    std::fprintf(stderr, "more pauses than there is room for\n");
    std::exit(1);
  }
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
