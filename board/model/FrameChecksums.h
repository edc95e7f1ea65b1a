#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace board {

// Fast; any wrong, missing or misplaced byte changes it.
std::uint64_t Checksum(std::span<const std::uint8_t> bytes);

// Checksums of the last frames as the FPGA made them, to check that they arrived unchanged. Off
// until enabled.
class FrameChecksums {
 public:
  void Keep(bool enable);
  bool Wanted() const { return wanted_.load(std::memory_order_relaxed); }
  void Note(std::uint64_t frame_id, std::uint64_t checksum);
  // Nothing if none was kept, or too many frames came since.
  std::optional<std::uint64_t> Find(std::uint64_t frame_id) const;

 private:
  // More than all buffers of a device can hold of the smallest strips.
  static constexpr std::size_t kKept = 1 << 16;

  struct Frame {
    std::uint64_t id = 0;  // ids begin at 1
    std::uint64_t checksum = 0;
  };

  std::atomic<bool> wanted_{false};
  mutable std::mutex mutex_;
  std::vector<Frame> frames_;
};

}  // namespace board
