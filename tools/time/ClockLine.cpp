#include "time/ClockLine.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tool {
namespace {

constexpr double kNs = 1e9;  // a second
constexpr double kMillion = 1e6;

// So many pairs show whether a straight line is right for them: if it is, neighbours are not much
// more alike than others.
constexpr std::size_t kLeastBent = 8;
constexpr double kBent = 0.35;

// 97.5 % quantiles of Student's t distribution for 1, 2, 3 ... degrees of freedom.
constexpr std::array kStudent{12.71, 4.30, 3.18, 2.78, 2.57, 2.45, 2.36, 2.31, 2.26, 2.23};
constexpr double kStudentOfMany = 2.2;

// One over the variance. A count is not known better than to a tick.
double Weight(const ClockPair& pair) {
  const double width = pair.HalfWidth();
  return 1 / (width * width + kTickNs * kTickNs);
}

}  // namespace

ClockLine::ClockLine(std::span<const ClockPair> pairs) : pairs_(pairs) {
  Fit();
  if (IsKnown()) Judge();
}

double ClockLine::SecondsAt(std::uint64_t ticks) const {
  return static_cast<double>(pairs_.back().TicksTo(ticks)) * (kTickNs / kNs);
}

void ClockLine::Fit() {
  const ClockPair& last = pairs_.back();
  double squares = 0;  // of x
  double product = 0;  // of x and y
  for (const ClockPair& pair : pairs_) {
    const double weight = Weight(pair);
    const double x = SecondsAt(pair.ticks);
    const auto y =
        static_cast<double>(pair.host_ns - last.host_ns - last.TicksTo(pair.ticks) * kTickNs);
    weights_ += weight;
    mean_x_ += weight * x;
    mean_y_ += weight * y;
    squares += weight * x * x;
    product += weight * x * y;
  }
  mean_x_ /= weights_;
  mean_y_ /= weights_;
  spread_ = squares - weights_ * mean_x_ * mean_x_;
  if (spread_ > 0) slope_ = (product - weights_ * mean_x_ * mean_y_) / spread_;
}

// How well the line fits.
void ClockLine::Judge() {
  double squares = 0;
  double neighbours = 0;
  double before = 0;
  double weights_squared = 0;
  for (const ClockPair& pair : pairs_) {
    const double weight = Weight(pair);
    const double residual =
        std::sqrt(weight) * static_cast<double>(pair.host_ns - HostNsAt(pair.ticks));
    squares += residual * residual;
    neighbours += residual * before;
    before = residual;
    weights_squared += weight * weight;
  }
  const auto n = static_cast<double>(pairs_.size());
  scatter_ = std::sqrt(squares / weights_ * n / (n - 2));
  // A mean of n values is better than one of them by the root of n only if they are independent.
  // Those of clocks are not, because their rates wander: with a correlation r of neighbours, n of
  // them are worth n (1 - r) / (1 + r). (M. S. Bartlett, "Some aspects of the time-correlation
  // problem", J. Royal Statistical Society 98, 1935.) A fitted line makes r too small by about
  // 2 / n. Of weighted values, the square of the sum over the sum of the squares counts (Kish,
  // "Survey Sampling", 1965).
  if (squares > 0) correlation_ = std::clamp(neighbours / squares + 2 / n, 0.0, 1.0);
  const double worth =
      weights_ * weights_ / weights_squared * (1 - correlation_) / (1 + correlation_);
  mean_deviation_ = scatter_ / std::sqrt(std::max(worth, 1.0));
}

// How wrong the line can be because of how long the pairs took to read: its value is a sum of the
// pairs' values, each times a factor, and each wrong by at most half of how long it took.
double ClockLine::ReadingError(double by_mean, double by_slope) const {
  double error = 0;
  for (const ClockPair& pair : pairs_) {
    const double factor =
        by_mean / weights_ + by_slope * (SecondsAt(pair.ticks) - mean_x_) / spread_;
    error += std::abs(factor) * Weight(pair) * pair.HalfWidth();
  }
  return error;
}

double ClockLine::Quantile() const {
  const std::size_t freedom = pairs_.size() - 2;
  return freedom <= kStudent.size() ? kStudent[freedom - 1] : kStudentOfMany;
}

bool ClockLine::IsBent() const {
  return pairs_.size() >= kLeastBent && correlation_ > kBent &&
         Quantile() * mean_deviation_ > ReadingError(1, 0);
}

std::int64_t ClockLine::HostNsAt(std::uint64_t ticks) const {
  const ClockPair& last = pairs_.back();
  const double y = mean_y_ + slope_ * (SecondsAt(ticks) - mean_x_);
  return last.host_ns + last.TicksTo(ticks) * kTickNs + std::llround(y);
}

// The uncertainty is that of reading, and that of a regression line at x: the deviation of the mean
// times the root of 1 + (x - mean)^2 / variance of x (Draper and Smith, "Applied Regression
// Analysis", chapter 3).
HostTime ClockLine::At(std::uint64_t ticks) const {
  const double from_mean = SecondsAt(ticks) - mean_x_;
  const double farther = from_mean * from_mean * weights_ / spread_;
  const double deviation = mean_deviation_ * std::sqrt(1 + farther);
  return {HostNsAt(ticks), ReadingError(1, from_mean) + Quantile() * deviation + kTickNs};
}

Drift ClockLine::CounterDrift() const {
  const double rate = 1 + slope_ / kNs;  // the host's seconds in one of the counter
  const double deviation = mean_deviation_ * std::sqrt(weights_ / spread_);
  const double uncertainty = (ReadingError(0, 1) + Quantile() * deviation) / kNs;
  return {(1 / rate - 1) * kMillion, uncertainty * kMillion};
}

}  // namespace tool
