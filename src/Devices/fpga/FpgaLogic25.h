#pragma once

#include "Devices/fpga/FpgaLogic.h"

namespace VeltranoSDK {

// The FPGA of series 23 and later: the sensor timing word has two halves.
class FpgaLogic25 : public FpgaLogic {
 public:
  bool SetTRow(unsigned int row_time) override;
  bool SetTGes(unsigned int global_exposure_shift) override;
};

}  // namespace VeltranoSDK
