#pragma once

#include <algorithm>
#include <chrono>

namespace VeltranoSDK::Utility {

// How long a pass pauses while its device fails: short the first time, longer while the failure
// lasts.
class Backoff {
 public:
  std::chrono::milliseconds Next() {
    const auto now = next_;
    next_ = std::min(2 * next_, kLongest);
    return now;
  }
  void Reset() { next_ = kShortest; }

 private:
  static constexpr std::chrono::milliseconds kShortest{10};
  static constexpr std::chrono::milliseconds kLongest{1000};

  std::chrono::milliseconds next_ = kShortest;
};

}  // namespace VeltranoSDK::Utility
