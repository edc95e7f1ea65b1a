#include "SeriesLogic/SeriesLogic25.h"

#include "Devices/FpgaLogic.h"
#include "Devices/FpgaRegister.h"
#include "SeriesLogic/ExposureDelta.h"
#include "SeriesLogic/LostCallbacks.h"
#include "SeriesLogic/OnFpga.h"

namespace VeltranoSDK {

SeriesLogic25::SeriesLogic25()
    : SeriesLogic(std::make_shared<FpgaRegisterZynqMp>(), kSeries25, kZynqMpBoard) {
  RegisterNotificationCallback(kExposureConfigured, [] {
    OnFpga("SeriesLogic25", [](FpgaLogic& fpga) { fpga.SetExposureNumDelta(kWideExposureDelta); });
  });
}

float SeriesLogic25::GetRisingEdgeThresholdCoeff() { return 0.5F; }

unsigned int SeriesLogic25::GetCallbackLostCount() { return FpgaLostCount(); }

bool SeriesLogic25::ResetCallbackLostCount() { return ResetFpgaLostCount(); }

std::uint8_t SeriesLogic25::GetStripPointDataByteCount() { return strip_point_data_byte_count_; }

}  // namespace VeltranoSDK
