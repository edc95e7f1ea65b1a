#pragma once

#include <array>
#include <cstdint>

#include "chips/ImageSensorChip.h"
#include "chips/SpiChip.h"
#include "memory/Shared.h"

namespace board {

// GMAX2509, 4200 columns: 8-bit registers at 8-bit addresses, in 24-bit frames that are not byte
// aligned. The data of a read start one bit later than those of a write.
class Gmax2509 : public SpiChip, public ImageSensorChip {
 public:
  // The array has 2048 rows. A product with 1024 rows always skips every other row; State()
  // then counts the product's rows.
  static constexpr unsigned kArrayRows = 2048;
  Gmax2509(BoardMemory& memory, unsigned product_rows);

  void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) override;

  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  SensorState State() const override;
  void Reset() override;

 private:
  static constexpr std::size_t kAddressSpace = 0x100;
  struct Registers {
    Registers();
    void PowerUp();
    unsigned Pair(std::uint8_t low_address) const;
    unsigned FirstRow() const;

    std::array<std::uint8_t, kAddressSpace> values{};
  };

  const unsigned product_rows_;
  Shared<Registers> state_;
};

}  // namespace board
