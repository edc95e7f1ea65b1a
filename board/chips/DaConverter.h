#pragma once

#include <cstdint>

#include "chips/I2cChip.h"
#include "memory/Shared.h"

namespace board {

// The 12-bit DA converter at address 0x60. A write is any number of byte pairs: two zero bits,
// two power-down bits, then the value, upper nibble first. A read returns the current pair.
class DaConverter : public I2cChip {
 public:
  explicit DaConverter(BoardMemory& memory) : state_(memory) {}

  bool Acknowledges(std::uint8_t address) const override;
  bool Message(const I2cMessage& message) override;

  // Address 0: the value, 1: the power-down bits.
  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  // The output as a fraction of the reference, 0 .. 1; 0 when powered down.
  double Level() const;

 private:
  struct State {
    std::uint16_t value = 0;
    std::uint8_t power_down = 0;
  };
  Shared<State> state_;
};

}  // namespace board
