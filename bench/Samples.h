#pragma once

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double Nanoseconds(Clock::duration time) {
  return std::chrono::duration<double, std::nano>(time).count();
}

// Processor time of the calling thread. Other programs that take the processor away
// do not count, unlike with a clock; they still take their share of the caches.
inline double ThreadNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

class Samples {
 public:
  void Add(double sample) { samples_.push_back(sample); }

  // p = 0.5: the median. Of no samples: 0.
  double Quantile(double p) const {
    if (samples_.empty()) return 0;
    std::vector<double> sorted = samples_;
    const auto at = static_cast<std::size_t>(p * static_cast<double>(sorted.size() - 1) + 0.5);
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(at),
                     sorted.end());
    return sorted[at];
  }
  double Median() const { return Quantile(0.5); }
  std::size_t Size() const { return samples_.size(); }

 private:
  std::vector<double> samples_;
};

// Two ways of doing a thing, measured side by side: a ratio for every round, because
// what else the machine does hits both of a round alike.
struct Comparison {
  Samples library;
  Samples bare;
  Samples ratio;

  void AddRound(double library_value, double bare_value) {
    library.Add(library_value);
    bare.Add(bare_value);
    ratio.Add(library_value / bare_value);
  }
};

}  // namespace bench
