#include "SeriesLogic/SeriesLogic21.h"

#include "Devices/fpga/FpgaRegister.h"
#include "SeriesLogic/LostCallbacks.h"

namespace VeltranoSDK {

SeriesLogic21::SeriesLogic21() : SeriesLogic(std::make_shared<FpgaRegisterZynq>(), kSeries21) {}

unsigned int SeriesLogic21::GetCallbackLostCount() { return StripThreadLostCount(); }

bool SeriesLogic21::ResetCallbackLostCount() { return ResetStripThreadLostCount(); }

}  // namespace VeltranoSDK
