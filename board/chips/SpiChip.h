#pragma once

#include <cstdint>
#include <span>

#include "chips/ChipAccess.h"

namespace board {

// A chip on an SPI bus. The bus serialises transfers. A chip also guards its own registers,
// because tests and the frame engine read them at any time.
class SpiChip : public ChipAccess {
 public:
  // What happens between select and deselect: for every byte in, one byte comes out. Both
  // spans have the same length; `out` is zeroed.
  virtual void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) = 0;
};

}  // namespace board
