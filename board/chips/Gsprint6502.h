#pragma once

#include <array>
#include <cstdint>

#include "chips/ImageSensorChip.h"
#include "chips/SpiChip.h"
#include "memory/Shared.h"

namespace board {

// GSPRINT6502BSI, 2048 x 1152 pixels: 8-bit registers at 15-bit addresses, which increment
// within a transfer.
class Gsprint6502 : public SpiChip, public ImageSensorChip {
 public:
  explicit Gsprint6502(BoardMemory& memory) : state_(memory) {}

  void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) override;

  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  SensorState State() const override;
  void Reset() override;

 private:
  static constexpr std::size_t kAddressSpace = 0x8000;
  struct Registers {
    Registers();
    void PowerUp();
    unsigned Pair(std::uint16_t low_address, unsigned mask) const;

    std::array<std::uint8_t, kAddressSpace> values{};
  };
  Shared<Registers> state_;
};

}  // namespace board
