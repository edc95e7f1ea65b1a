#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "thread/Pause.h"

namespace VeltranoSDK::Utility {

// A record of numbers that one thread writes and others read, always as a whole. The writer never
// waits; a reader that the writer has overtaken reads again.
template <typename Record>
class Published {
 public:
  // For one thread at a time.
  void Publish(const Record& record) {
    const auto words = std::bit_cast<Words>(record);
    const std::uint64_t version = version_.load(std::memory_order_relaxed);
    version_.store(version + 1, std::memory_order_relaxed);
    // Release: a reader that sees one of these also sees the odd version.
    for (std::size_t i = 0; i < kWords; ++i) words_[i].store(words[i], std::memory_order_release);
    version_.store(version + 2, std::memory_order_release);
  }

  Record Read() const {
    Words words;
    while (!TryRead(words)) {
      // Not just a yield: the reader's priority may be above the writer's.
      Pause(kOvertakenUs);
    }
    return std::bit_cast<Record>(words);
  }

 private:
  static_assert(std::is_trivially_copyable_v<Record>);
  static_assert(sizeof(Record) % sizeof(std::uint64_t) == 0);
  static constexpr std::size_t kWords = sizeof(Record) / sizeof(std::uint64_t);
  static constexpr unsigned int kOvertakenUs = 50;
  using Words = std::array<std::uint64_t, kWords>;

  bool TryRead(Words& words) const {
    const std::uint64_t version = version_.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < kWords; ++i) words[i] = words_[i].load(std::memory_order_acquire);
    return version % 2 == 0 && version_.load(std::memory_order_relaxed) == version;
  }

  std::atomic<std::uint64_t> version_{0};  // odd while the words are being written
  std::array<std::atomic<std::uint64_t>, kWords> words_{};
};

}  // namespace VeltranoSDK::Utility
