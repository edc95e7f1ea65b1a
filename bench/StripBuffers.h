#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Runnable/StripWalk.h"

namespace bench {

inline constexpr std::size_t kStripBufferBytes = 655360;
inline constexpr std::size_t kPointBytes = 8;
inline constexpr std::size_t kDriverBuffers = 18;

struct Load {
  std::uint32_t strips;
  std::uint32_t points;  // of each strip
  std::size_t buffers;
};

// Buffers full of strips. Each buffer starts on a page boundary. Frame ids continue from buffer to
// buffer and start again at the first buffer.
class StripBuffers {
 public:
  explicit StripBuffers(const Load& load) : load_(load), memory_(Map(load.buffers)) {
    for (std::size_t i = 0; i < load.buffers; ++i) {
      std::byte* at = Buffer(i);
      for (std::uint32_t strip = 0; strip < load.strips; ++strip) {
        const std::uint64_t before = i * load.strips + strip;
        const VeltranoSDK::StripHeader header{before + 1, before, before, load.points};
        std::memcpy(at, &header, sizeof header);
        at += sizeof header + kPointBytes * load.points;
      }
    }
  }
  ~StripBuffers() { munmap(memory_, load_.buffers * kStripBufferBytes); }
  StripBuffers(const StripBuffers&) = delete;
  StripBuffers& operator=(const StripBuffers&) = delete;

  std::byte* Memory() const { return memory_; }
  unsigned Place(std::size_t turn) const { return static_cast<unsigned>(turn % load_.buffers); }
  std::byte* Buffer(std::size_t turn) const { return memory_ + Place(turn) * kStripBufferBytes; }

  // Writes the count, as the FPGA does, because the library has cleared it.
  std::byte* Filled(std::size_t turn) const {
    PutCount(Buffer(turn), load_.strips);
    return Buffer(turn);
  }

  static void PutCount(std::byte* buffer, std::uint64_t count) {
    std::memcpy(buffer + kStripBufferBytes - sizeof count, &count, sizeof count);
  }

 private:
  static std::byte* Map(std::size_t buffers) {
    void* memory = mmap(nullptr, buffers * kStripBufferBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED) {
      std::perror("no memory for the strips");
      std::exit(1);
    }
    return static_cast<std::byte*>(memory);
  }

  Load load_;
  std::byte* memory_;
};

}  // namespace bench
