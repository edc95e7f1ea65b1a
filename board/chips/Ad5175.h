#pragma once

#include <cstdint>

#include "chips/I2cChip.h"
#include "chips/LaserPowerChip.h"
#include "memory/Shared.h"

namespace board {

// Analog Devices AD5175, a potentiometer with 1024 positions at address 0x2F. Its 16-bit frames
// have a 4-bit command and 10 bits of data. The non-volatile wiper memory is not modelled:
// power-up and software reset go to mid-scale.
class Ad5175 : public I2cChip, public LaserPowerChip {
 public:
  explicit Ad5175(BoardMemory& memory);

  bool Acknowledges(std::uint8_t address) const override;
  bool Message(const I2cMessage& message) override;

  // Address 0: wiper, 1: control register.
  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  double Power() const override;

 private:
  struct State {
    std::uint16_t control = 0;
    std::uint16_t read_back = 0;
  };
  void Execute(std::uint16_t frame, State& chip);

  Shared<State> state_;
  std::uint16_t& wiper_;  // guarded by the lock of the state
};

}  // namespace board
