#pragma once

#include <cstdint>

#include "chips/I2cChip.h"
#include "chips/LaserPowerChip.h"
#include "memory/Shared.h"

namespace board {

// Texas Instruments TPL0401B, a potentiometer with 128 positions at address 0x3E: one register,
// 0, of 7 bits. It is wired the other way round in the laser's supply, so code 0 is full
// power.
class Tpl0401 : public I2cChip, public LaserPowerChip {
 public:
  explicit Tpl0401(BoardMemory& memory);

  bool Acknowledges(std::uint8_t address) const override;
  bool Message(const I2cMessage& message) override;

  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  double Power() const override;

 private:
  struct State {
    std::uint8_t selected = 0;
  };
  Shared<State> state_;
  std::uint8_t& wiper_;  // guarded by the lock of the state
};

}  // namespace board
