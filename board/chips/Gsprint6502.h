#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "chips/ImageSensorChip.h"
#include "chips/SpiChip.h"

namespace board {

// GSPRINT6502BSI, 2048 x 1152 pixels: 8-bit registers at 15-bit addresses, which increment
// within a transfer.
class Gsprint6502 : public SpiChip, public ImageSensorChip {
 public:
  Gsprint6502();

  void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) override;

  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  SensorState State() const override;
  void Reset() override;

 private:
  void PowerUp();
  unsigned Pair(std::uint16_t low_address, unsigned mask) const;

  mutable std::mutex mutex_;
  std::vector<std::uint8_t> registers_;
};

}  // namespace board
