#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace bench {

// Reads and writes every byte in place. This is the least that any in-place change costs.
inline void InvertInPlace(std::byte* data, std::size_t size) {
  std::uint64_t word;
  for (std::size_t at = 0; at + sizeof word <= size; at += sizeof word) {
    std::memcpy(&word, data + at, sizeof word);
    word = ~word;
    std::memcpy(data + at, &word, sizeof word);
  }
}

}  // namespace bench
