#pragma once

#include <poll.h>

#include <algorithm>

#include "function/CancellationScope.h"

namespace VeltranoSDK::Utility {

// The pause of a pass that found nothing to do because its device fails: short
// the first time, longer while the failure lasts. The thread can be cancelled in it.
class Backoff {
 public:
  void Wait() {
    const CancellationScope may_end_here;
    poll(nullptr, 0, pause_ms_);
    pause_ms_ = std::min(2 * pause_ms_, kLongestMs);
  }
  void Reset() { pause_ms_ = kShortestMs; }

 private:
  static constexpr int kShortestMs = 10;
  static constexpr int kLongestMs = 1000;

  int pause_ms_ = kShortestMs;
};

}  // namespace VeltranoSDK::Utility
