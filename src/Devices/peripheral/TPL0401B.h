#pragma once

#include "Devices/bus/I2cDev.h"
#include "Devices/peripheral/DigitalPOT.h"

namespace VeltranoSDK {

// The wiper runs opposite to the power: code 0 is 100 percent.
class TPL0401B : public DigitalPOT {
 public:
  TPL0401B();

  unsigned int GetResolution() override;
  bool SetPosition(float percent) override;

 private:
  unsigned int resolution_;
  I2cDev i2c_;
};

}  // namespace VeltranoSDK
