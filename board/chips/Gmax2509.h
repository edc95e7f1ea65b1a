#pragma once

#include <array>
#include <cstdint>
#include <mutex>

#include "chips/ImageSensorChip.h"
#include "chips/SpiChip.h"

namespace board {

// GMAX2509, 4200 columns: 8-bit registers at 8-bit addresses, in 24-bit frames that are not byte
// aligned. The data of a read start one bit later than those of a write.
class Gmax2509 : public SpiChip, public ImageSensorChip {
 public:
  // The array has 2048 rows. A product with 1024 rows always skips every other row; State()
  // then counts the product's rows.
  static constexpr unsigned kArrayRows = 2048;
  explicit Gmax2509(unsigned product_rows);

  void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) override;

  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  SensorState State() const override;
  void Reset() override;

 private:
  void PowerUp();
  unsigned Pair(std::uint8_t low_address) const;
  unsigned FirstRow() const;

  const unsigned product_rows_;
  mutable std::mutex mutex_;
  std::array<std::uint8_t, 0x100> registers_{};
};

}  // namespace board
