#pragma once

#include <cstdint>

namespace board {

// A register that does not power up at 0.
struct SensorRegisterValue {
  std::uint16_t address;
  std::uint8_t value;
};

}  // namespace board
