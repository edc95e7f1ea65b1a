#pragma once

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double Nanoseconds(Clock::duration time) {
  return std::chrono::duration<double, std::nano>(time).count();
}

// Processor time of the calling thread. Unlike wall time, it does not count the time when other
// programs use the processor. Other programs still take their share of the caches.
inline double ThreadNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

class Samples {
 public:
  void Add(double sample) { samples_.push_back(sample); }

  // p = 0.5 gives the median. Interpolates between two samples. Returns 0 if there are no samples.
  double Quantile(double p) const {
    if (samples_.empty()) return 0;
    std::vector<double> sorted = samples_;
    const double place = p * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(below);
    std::nth_element(sorted.begin(), middle, sorted.end());
    const double low = *middle;
    if (below + 1 == sorted.size()) return low;
    const double high = *std::min_element(middle + 1, sorted.end());
    return low + (place - static_cast<double>(below)) * (high - low);
  }
  double Median() const { return Quantile(0.5); }
  std::size_t Size() const { return samples_.size(); }

 private:
  std::vector<double> samples_;
};

// Two ways of doing the same thing, measured side by side. Each round has its own ratio, because
// other load on the machine affects both ways of a round alike.
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

// Returns the results of all ways. Each round starts with a different way, so that none always goes
// first.
template <typename Result>
std::vector<Result> InTurn(int round, const std::vector<std::function<Result()>>& ways) {
  std::vector<Result> results(ways.size());
  for (std::size_t i = 0; i < ways.size(); ++i) {
    const std::size_t way = (static_cast<std::size_t>(round) + i) % ways.size();
    results[way] = ways[way]();
  }
  return results;
}

}  // namespace bench
