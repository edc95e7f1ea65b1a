#include "SeriesLogic/SeriesLogic22.h"

#include "Devices/fpga/FpgaRegister.h"
#include "Devices/sensor/imx252/IMX252.h"
#include "Neighbours.h"
#include "SeriesLogic/LostCallbacks.h"
#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {

SeriesLogic22::SeriesLogic22() : SeriesLogic(std::make_shared<FpgaRegisterZynq>(), kSeries22) {
  RegisterNotificationCallback(kStartupFinished, [] {
    neighbour::OnSensor<IMX252>("SeriesLogic22", [](IMX252& sensor) { sensor.PowerOnSelfTest(); });
  });
}

float SeriesLogic22::GetRisingEdgeThresholdCoeff() { return 0.5F; }

unsigned int SeriesLogic22::GetCallbackLostCount() { return StripThreadLostCount(); }

bool SeriesLogic22::ResetCallbackLostCount() { return ResetStripThreadLostCount(); }

SeriesLogic22ch16::SeriesLogic22ch16() {
  // Set before the sensor is programmed, because its programming depends on it.
  RegisterNotificationCallback(kTriggerConfigured, [] {
    neighbour::OnSensor<IMX252>("SeriesLogic22ch16", [](IMX252& sensor) { sensor.SetCh16Mode(1); });
  });
}

SeriesLogic22ch16Arm::SeriesLogic22ch16Arm() {
  strip_parse_protocol_ = std::make_shared<StripParseProtocol22ch16Arm>();
  RegisterNotificationCallback(kTriggerConfigured, [] {
    neighbour::OnSensor<IMX252>("SeriesLogic22ch16Arm", [](IMX252& sensor) {
      sensor.SetCh16Mode(1);
      sensor.SetStripWidthFollow(true);
    });
  });
}

}  // namespace VeltranoSDK
