#pragma once

#include <cstdint>

namespace VeltranoSDK {

// Follows the FPGA's frame ids, which count up by one, and counts the missing ones.
class FrameIds {
 public:
  struct Counts {
    std::uint64_t seen;
    std::uint64_t gaps;
    std::uint64_t missing;
    std::uint64_t out_of_order;
  };

  void Follow(std::uint64_t id) {
    ++counts_.seen;
    const std::uint64_t step = id - last_;
    if (!known_ || (step >= 1 && step <= kFarthest)) {
      if (known_ && step > 1) {
        ++counts_.gaps;
        counts_.missing += step - 1;
      }
      last_ = id;
      known_ = true;
      strayed_ = false;
    } else {
      Stray(id);
    }
  }

  // `count` ids from `first` on, without a gap. The first two settle what came before.
  void FollowRun(std::uint64_t first, std::uint64_t count) {
    constexpr std::uint64_t kSettled = 2;
    std::uint64_t told = 0;
    for (; told < count && told < kSettled; ++told) Follow(first + told);
    if (told == count) return;
    counts_.seen += count - told - 1;
    last_ = first + count - 2;
    Follow(first + count - 1);
  }

  // The next id counts as the first one.
  void Restart() { known_ = false; }

  void ClearCounts() { counts_ = {}; }
  const Counts& counts() const { return counts_; }

 private:
  // An id further ahead is garbage: so many frames take months.
  static constexpr std::uint64_t kFarthest = std::uint64_t{1} << 32;

  // One stray id is an old frame; two in a row mean that counting restarted.
  void Stray(std::uint64_t id) {
    ++counts_.out_of_order;
    if (strayed_ && id - stray_ == 1) last_ = id;
    strayed_ = true;
    stray_ = id;
  }

  Counts counts_{};
  std::uint64_t last_ = 0;
  std::uint64_t stray_ = 0;
  bool known_ = false;
  bool strayed_ = false;
};

}  // namespace VeltranoSDK
