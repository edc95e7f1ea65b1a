#pragma once

#include <sys/prctl.h>

namespace VeltranoSDK {

// Makes sleeps of the calling thread end on time. Otherwise the kernel may add 50 us to each, to
// save wake-ups, and a start-up has hundreds of short ones. Threads started meanwhile would inherit
// it.
class PromptSleeps {
 public:
  PromptSleeps() : ordinary_(prctl(PR_GET_TIMERSLACK)) { prctl(PR_SET_TIMERSLACK, 1UL); }
  ~PromptSleeps() {
    if (ordinary_ > 0) prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(ordinary_));
  }
  PromptSleeps(const PromptSleeps&) = delete;
  PromptSleeps& operator=(const PromptSleeps&) = delete;

 private:
  const int ordinary_;
};

}  // namespace VeltranoSDK
