#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "chips/I2cChip.h"
#include "chips/ImageSensorChip.h"
#include "chips/SensorRegisterValue.h"
#include "memory/Shared.h"

namespace board {

// Which columns and rows are read out: every one (1) or every other one (2).
struct ReadoutSteps {
  unsigned columns;
  unsigned rows;
};

// The differences between the sensors of the family.
struct SonySensorModel {
  std::uint8_t i2c_address;
  unsigned full_width;
  unsigned full_height;
  std::span<const SensorRegisterValue> power_up;  // registers that do not start at 0
  ReadoutSteps (*steps)(std::uint8_t readout_mode);
};

// A Sony global-shutter sensor on I2C: 8-bit registers at 16-bit addresses, which increment
// within a transfer.
class SonySensor : public I2cChip, public ImageSensorChip {
 public:
  SonySensor(BoardMemory& memory, const SonySensorModel& model);

  bool Acknowledges(std::uint8_t address) const override;
  bool Message(const I2cMessage& message) override;

  // Setting the temperature code (0x301E, 0x301F) also sets the code that the next latch copies.
  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  SensorState State() const override;
  void Reset() override;

 private:
  static constexpr std::size_t kAddressSpace = 0x10000;
  struct Registers {
    void PowerUp(std::span<const SensorRegisterValue> power_up);
    void WriteRegister(std::uint16_t address, std::uint8_t value);
    unsigned Pair(std::uint16_t low_address, unsigned mask) const;

    bool powered = false;
    std::array<std::uint8_t, kAddressSpace> values{};
    std::uint16_t pointer = 0;
    std::array<std::uint8_t, 2> temperature{};
  };

  const SonySensorModel model_;
  Shared<Registers> state_;
};

}  // namespace board
