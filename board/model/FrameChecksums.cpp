#include "model/FrameChecksums.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace board {
namespace {

constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;  // odd, so no step loses information

std::uint64_t Mix(std::uint64_t state, std::uint64_t word) {
  return std::rotl((state ^ word) * kFactor, 31);
}

}  // namespace

std::uint64_t Checksum(std::span<const std::uint8_t> bytes) {
  std::array<std::uint64_t, 4> lanes{1, 2, 3,
                                     4};  // four, so that no step waits for the previous one
  std::array<std::uint64_t, 4> words{};
  std::uint64_t sum = bytes.size();
  for (; bytes.size() >= sizeof words; bytes = bytes.subspan(sizeof words)) {
    std::memcpy(words.data(), bytes.data(), sizeof words);
    for (std::size_t i = 0; i < lanes.size(); ++i) lanes[i] = Mix(lanes[i], words[i]);
  }
  words = {};
  if (!bytes.empty()) std::memcpy(words.data(), bytes.data(), bytes.size());
  for (std::size_t i = 0; i < lanes.size(); ++i) sum = Mix(Mix(sum, lanes[i]), words[i]);
  return sum;
}

void FrameChecksums::Keep(bool enable) {
  const std::lock_guard lock(mutex_);
  frames_.assign(enable ? kKept : 0, {});
  wanted_ = enable;
}

void FrameChecksums::Note(std::uint64_t frame_id, std::uint64_t checksum) {
  const std::lock_guard lock(mutex_);
  if (!frames_.empty()) frames_[frame_id % kKept] = {frame_id, checksum};
}

std::optional<std::uint64_t> FrameChecksums::Find(std::uint64_t frame_id) const {
  const std::lock_guard lock(mutex_);
  if (frames_.empty() || frames_[frame_id % kKept].id != frame_id) return std::nullopt;
  return frames_[frame_id % kKept].checksum;
}

}  // namespace board
