#pragma once

namespace board {

// The potentiometer that sets the laser's optical power, whatever the chip.
class LaserPowerChip {
 public:
  virtual ~LaserPowerChip() = default;
  virtual double Power() const = 0;  // 0 (dark) .. 1 (the most the wiper allows)
};

}  // namespace board
