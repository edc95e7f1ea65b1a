#pragma once

#include "Devices/bus/I2cDev.h"
#include "Devices/peripheral/DigitalPOT.h"

namespace VeltranoSDK {

class AD5175DigiPOT : public DigitalPOT {
 public:
  AD5175DigiPOT();

  unsigned int GetResolution() override;
  bool SetPosition(float percent) override;

  // Moves the wiper; the last 23 of its 1024 steps are never used.
  bool SetPower(unsigned short code);
  // Unlocks the wiper register, which the bus cannot write after power-up.
  bool RemoveRegisterRdWrProtection();

 private:
  I2cDev i2c_;
  unsigned int resolution_;
};

}  // namespace VeltranoSDK
