#include "SeriesLogic/SeriesLogic22.h"

#include "Devices/FpgaRegister.h"
#include "Devices/IMX252.h"
#include "SeriesLogic/LostCallbacks.h"
#include "SeriesLogic/OnSensor.h"

namespace VeltranoSDK {

SeriesLogic22::SeriesLogic22() : SeriesLogic(std::make_shared<FpgaRegisterZynq>(), kSeries22) {
  RegisterNotificationCallback(kStartupFinished, [] {
    OnSensor<IMX252>("SeriesLogic22", [](IMX252& sensor) { sensor.PowerOnSelfTest(); });
  });
}

float SeriesLogic22::GetRisingEdgeThresholdCoeff() { return 0.5F; }

unsigned int SeriesLogic22::GetCallbackLostCount() { return StripThreadLostCount(); }

bool SeriesLogic22::ResetCallbackLostCount() { return ResetStripThreadLostCount(); }

}  // namespace VeltranoSDK
