#include "Devices/fpga/FpgaLogic25.h"

#include "log/Log.h"

namespace VeltranoSDK {

bool FpgaLogic25::SetTRow(unsigned int row_time) {
  Trace(__func__);
  Merge(fpga::kTRow25, row_time);
  return true;
}

bool FpgaLogic25::SetTGes(unsigned int global_exposure_shift) {
  Trace(__func__);
  Merge(fpga::kTGes25, global_exposure_shift);
  return true;
}

}  // namespace VeltranoSDK
