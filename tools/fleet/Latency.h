#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace tool::fleet {

// How long messages were under way, counted in steps of an eighth of a power of two: a quantile is
// right to about 10 %.
class Latency {
 public:
  void Add(std::int64_t ns) {
    const auto time = static_cast<std::uint64_t>(std::max<std::int64_t>(ns, 0));
    ++counts_[Index(time)];
    ++all_;
    most_ = std::max(most_, time);
  }

  std::uint64_t count() const { return all_; }
  std::uint64_t most_ns() const { return most_; }

  // The time below which this share of them was.
  std::uint64_t Quantile(double share) const {
    const auto wanted = static_cast<std::uint64_t>(share * static_cast<double>(all_));
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
      sum += counts_[i];
      if (sum > wanted) return std::min(UpperEnd(i), most_);
    }
    return most_;
  }

 private:
  static constexpr unsigned kBits = 3;  // of a step, behind the first bit
  static constexpr std::size_t kSteps = 1 << kBits;

  static std::size_t Index(std::uint64_t time) {
    if (time < kSteps) return time;
    const unsigned shift = static_cast<unsigned>(std::bit_width(time)) - 1 - kBits;
    return (shift + 1) * kSteps + ((time >> shift) & (kSteps - 1));
  }
  static std::uint64_t UpperEnd(std::size_t index) {
    if (index < kSteps) return index;
    const std::size_t shift = index / kSteps - 1;
    return ((kSteps + index % kSteps + 1) << shift) - 1;
  }

  std::array<std::uint64_t, 64 * kSteps> counts_{};
  std::uint64_t all_ = 0;
  std::uint64_t most_ = 0;
};

}  // namespace tool::fleet
