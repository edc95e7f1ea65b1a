#include "SeriesLogic/LostCallbacks.h"

#include "Devices/fpga/FpgaLogic.h"
#include "Neighbours.h"
#include "Runnable/CaptureStripStream.h"

namespace VeltranoSDK {

unsigned int StripThreadLostCount() {
  const auto strip = neighbour::StripThread(__func__);
  return static_cast<unsigned int>(strip->CallbackLostCount());
}

bool ResetStripThreadLostCount() {
  const auto strip = neighbour::StripThread(__func__);
  return strip->ResetCallbackLostCount();
}

unsigned int FpgaLostCount() {
  unsigned int count = 0xFFFFFFFF;
  neighbour::OnFpga(__func__, [&](FpgaLogic& fpga) { count = fpga.GetCallbackLostNum(); });
  return count;
}

bool ResetFpgaLostCount() {
  bool reset = false;
  neighbour::OnFpga(__func__, [&](FpgaLogic& fpga) { reset = fpga.ResetCallbackLostNum(); });
  return reset;
}

}  // namespace VeltranoSDK
