#pragma once

#include "chips/SonySensor.h"

namespace board {

// Sony IMX252, 2064 x 1544 pixels, monochrome, at address 0x10.
class Imx252 : public SonySensor {
 public:
  explicit Imx252(BoardMemory& memory);
};

}  // namespace board
