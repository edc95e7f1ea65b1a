#pragma once

#include <cstdint>
#include <span>

#include "chips/ChipAccess.h"

namespace board {

// A chip on an SPI bus. The bus serialises transfers. A chip also guards its own registers,
// because tests and the frame engine read them at any time.
class SpiChip : public ChipAccess {
 public:
  // Everything between select and deselect. One byte is returned for every byte sent. Both spans
  // have the same length, and `out` is initially zero.
  virtual void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) = 0;
};

}  // namespace board
