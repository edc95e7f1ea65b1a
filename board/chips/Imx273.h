#pragma once

#include "chips/SonySensor.h"

namespace board {

// Sony IMX273, 1456 x 1088 pixels, monochrome, at address 0x36.
class Imx273 : public SonySensor {
 public:
  explicit Imx273(BoardMemory& memory);
};

}  // namespace board
