#pragma once

#include <cstdint>
#include <span>

#include "chips/ChipAccess.h"

namespace board {

// A chip on an SPI bus. The bus serialises transfers; a chip also guards its own
// registers, because bench and frame generator look at them at any time.
class SpiChip : public ChipAccess {
 public:
  // What happens between select and deselect: a byte goes in for every byte that
  // comes out. Both spans are equally long; `out` arrives filled with zeros.
  virtual void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) = 0;
};

}  // namespace board
