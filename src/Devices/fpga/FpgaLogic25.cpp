#include "Devices/fpga/FpgaLogic25.h"

#include "log/Log.h"

namespace VeltranoSDK {

bool FpgaLogic25::SetTRow(unsigned int row_time) {
  Trace(__func__);
  Merge(fpga::kField.t_row_halves, row_time);
  return true;
}

bool FpgaLogic25::SetTGes(unsigned int global_exposure_shift) {
  Trace(__func__);
  Merge(fpga::kField.t_ges_halves, global_exposure_shift);
  return true;
}

}  // namespace VeltranoSDK
