#pragma once

#include <cstdint>

namespace board {

// A register whose power-up value is not 0.
struct SensorRegisterValue {
  std::uint16_t address;
  std::uint8_t value;
};

}  // namespace board
