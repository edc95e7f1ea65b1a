#pragma once

#include <cstdint>
#include <vector>

namespace board {

// A message in transfer. The bytes are the kernel's own copy.
struct I2cTransfer {
  unsigned address;
  bool read;
  std::vector<std::uint8_t> bytes;
};

}  // namespace board
