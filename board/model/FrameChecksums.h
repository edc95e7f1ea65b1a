#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace board {

// A fast checksum. Any wrong, missing or misplaced byte changes it.
std::uint64_t Checksum(std::span<const std::uint8_t> bytes);

// Checksums of the last frames that the FPGA made, to check that they arrived unchanged. Initially
// off.
class FrameChecksums {
 public:
  void Keep(bool enable);
  bool Wanted() const { return wanted_.load(std::memory_order_relaxed); }
  void Note(std::uint64_t frame_id, std::uint64_t checksum);
  // Returns nothing if no checksum was kept, or if too many frames have followed.
  std::optional<std::uint64_t> Find(std::uint64_t frame_id) const;

 private:
  // More than the number of smallest strips that all buffers of a device can hold.
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
