#pragma once

namespace board {

// Any potentiometer that sets the laser's optical power.
class LaserPowerChip {
 public:
  virtual ~LaserPowerChip() = default;
  virtual double Power() const = 0;  // 0 (dark) .. 1 (the maximum that the wiper allows)
};

}  // namespace board
