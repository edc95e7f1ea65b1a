#include "time/ClockFit.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace tool {
namespace {

// Two crystals of 50 ppm each, and the 500 ppm by which the kernel lets a clock be slewed
// (adjtimex(2), "tolerance").
constexpr double kMostDrift = 600e-6;

// Many standard deviations, so that noise alone hardly ever shortens the line.
constexpr double kFarOff = 4;

// A count that was read before the device started.
constexpr std::uint64_t kNotStarted = ~std::uint64_t{0};
// Nothing latches the counter's upper word: one that is carried into between the two reads makes
// the count too large by this.
constexpr std::uint64_t kUpperWord = std::uint64_t{1} << 32;
constexpr std::int64_t kFarthest = std::int64_t{10} * 365 * 86400 * (1'000'000'000 / kTickNs);

// From one pair alone: what any two clocks do.
HostTime ByLimits(const ClockPair& pair, std::uint64_t ticks) {
  const std::int64_t elapsed_ns = pair.TicksTo(ticks) * kTickNs;
  const double drift = kMostDrift * std::abs(static_cast<double>(elapsed_ns));
  return {pair.host_ns + elapsed_ns, pair.HalfWidth() + kTickNs + drift};
}

}  // namespace

void ClockFit::Add(const ClockPair& pair) {
  if (pair.ticks == kNotStarted) return;
  ClockPair added = pair;
  if (Contradicts(added)) {
    added.ticks -= kUpperWord;
    if (Contradicts(added)) added = pair;
  }
  while (length_ >= ClockLine::kLeastPairs && Contradicts(added)) length_ /= 2;
  if (Contradicts(added)) {
    pairs_.clear();
    length_ = 0;
    ++restarts_;
  }
  pairs_.push_back(added);
  ++length_;
  if (pairs_.size() > window_) pairs_.erase(pairs_.begin());
  length_ = std::min(length_, pairs_.size());
  while (const auto line = LineAt(added.ticks)) {
    if (!line->IsBent()) break;
    length_ -= length_ / 4;
  }
}

bool ClockFit::Contradicts(const ClockPair& pair) const {
  if (pairs_.empty()) return false;
  const auto expected = At(pair.ticks);
  if (!expected) return true;
  const auto line = LineAt(pair.ticks);
  const double scatter = line ? line->scatter() : 0;
  const auto error = static_cast<double>(pair.host_ns - expected->ns);
  return std::abs(error) > expected->uncertainty_ns + pair.HalfWidth() + kFarOff * scatter;
}

std::optional<ClockLine> ClockFit::LineAt(std::uint64_t ticks) const {
  if (length_ < ClockLine::kLeastPairs) return std::nullopt;
  const auto after = std::find_if(pairs_.begin(), pairs_.end(), [ticks](const ClockPair& pair) {
    return pair.TicksTo(ticks) <= 0;
  });
  const auto place = static_cast<std::size_t>(after - pairs_.begin());
  const std::size_t half = length_ / 2;
  const std::size_t first = std::min(place > half ? place - half : 0, pairs_.size() - length_);
  const ClockLine line({pairs_.data() + first, length_});
  if (!line.IsKnown()) return std::nullopt;
  return line;
}

std::optional<HostTime> ClockFit::At(std::uint64_t ticks) const {
  if (pairs_.empty() || std::abs(pairs_.back().TicksTo(ticks)) > kFarthest) return std::nullopt;
  const auto line = LineAt(ticks);
  HostTime best = line ? line->At(ticks) : ByLimits(pairs_.back(), ticks);
  const double noise = line ? kFarOff * line->scatter() : 0;
  for (const ClockPair& pair : pairs_) {
    HostTime other = ByLimits(pair, ticks);
    other.uncertainty_ns += noise;
    if (other.uncertainty_ns < best.uncertainty_ns) best = other;
  }
  return best;
}

std::optional<Drift> ClockFit::CounterDrift() const {
  const auto line = pairs_.empty() ? std::nullopt : LineAt(pairs_.back().ticks);
  if (!line) return std::nullopt;
  return line->CounterDrift();
}

}  // namespace tool
