#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tool {

// The counter of the FPGA that stamps strips and images: free-running, 64 bits.
inline constexpr std::int64_t kTickNs = 20;

// The host's clock and the FPGA's counter, read at the same moment.
struct ClockPair {
  std::int64_t host_ns = 0;  // since 1970, in the middle of reading the counter
  std::uint64_t ticks = 0;
  std::uint64_t uncertainty_ns = 0;  // how long reading the counter took

  // The counter was read at any moment while that took, and not always in the middle: the error is
  // at most half of it, and no mean makes it less. (F. Cristian, "Probabilistic clock
  // synchronization", Distributed Computing 3, 1989.)
  double HalfWidth() const { return static_cast<double>(uncertainty_ns) / 2; }
  // To a later count; negative: to an earlier one.
  std::int64_t TicksTo(std::uint64_t other) const {
    return static_cast<std::int64_t>(other - ticks);
  }
};

// A moment of the host's clock. It lies within the uncertainty in 95 % of all cases or more.
struct HostTime {
  std::int64_t ns = 0;  // since 1970
  double uncertainty_ns = 0;
};

// By how much the counter runs fast against the host's clock; negative: slow.
struct Drift {
  double ppm = 0;
  double uncertainty_ppm = 0;
};

// A straight line through pairs, by least squares: a pair counts the less the longer reading it
// took.
class ClockLine {
 public:
  // Two pairs always lie on a line: only a third one shows how well.
  static constexpr std::size_t kLeastPairs = 3;

  // `pairs` must outlive it.
  explicit ClockLine(std::span<const ClockPair> pairs);

  // False if the counter stands: then nothing else means anything.
  bool IsKnown() const { return spread_ > 0; }
  HostTime At(std::uint64_t ticks) const;
  Drift CounterDrift() const;

  // Of a pair, in ns: the standard deviation.
  double scatter() const { return scatter_; }
  // Whether the pairs lie on a curve rather than on a straight line.
  bool IsBent() const;

 private:
  double SecondsAt(std::uint64_t ticks) const;
  std::int64_t HostNsAt(std::uint64_t ticks) const;
  void Fit();
  void Judge();
  double ReadingError(double by_mean, double by_slope) const;
  double Quantile() const;

  std::span<const ClockPair> pairs_;
  // y ns more than 20 ns a tick at x seconds, both from the last pair: doubles hold such distances
  // to fractions of a nanosecond.
  double mean_x_ = 0;
  double mean_y_ = 0;
  double slope_ = 0;
  double weights_ = 0;  // the sum
  double spread_ = 0;   // weighted sum of the squares of x - mean_x
  double scatter_ = 0;
  double correlation_ = 0;     // of neighbouring residuals
  double mean_deviation_ = 0;  // standard deviation of mean_y
};

}  // namespace tool
