#include "SeriesLogic/SeriesLogic22ch16.h"

#include "Devices/IMX252.h"
#include "SeriesLogic/OnSensor.h"

namespace VeltranoSDK {

SeriesLogic22ch16::SeriesLogic22ch16() {
  // Before the sensor is programmed, which depends on it.
  RegisterNotificationCallback(kTriggerConfigured, [] {
    OnSensor<IMX252>("SeriesLogic22ch16", [](IMX252& sensor) { sensor.SetCh16Mode(1); });
  });
}

}  // namespace VeltranoSDK
