#include "SeriesLogic/LostCallbacks.h"

#include "Devices/FpgaLogic.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/RunnableObjectManager.h"
#include "SeriesLogic/OnFpga.h"

namespace VeltranoSDK {

unsigned int StripThreadLostCount() {
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;
  return static_cast<unsigned int>(strip->CallbackLostCount());
}

bool ResetStripThreadLostCount() {
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;
  return strip->ResetCallbackLostCount();
}

unsigned int FpgaLostCount() {
  unsigned int count = 0xFFFFFFFF;
  OnFpga(__func__, [&](FpgaLogic& fpga) { count = fpga.GetCallbackLostNum(); });
  return count;
}

bool ResetFpgaLostCount() {
  bool reset = false;
  OnFpga(__func__, [&](FpgaLogic& fpga) { reset = fpga.ResetCallbackLostNum(); });
  return reset;
}

}  // namespace VeltranoSDK
