#include "SeriesLogic/SeriesLogic22ch16Arm.h"

#include "Devices/IMX252.h"
#include "SeriesLogic/OnSensor.h"
#include "SeriesLogic/StripParseProtocol22ch16Arm.h"

namespace VeltranoSDK {

SeriesLogic22ch16Arm::SeriesLogic22ch16Arm() {
  strip_parse_protocol_ = std::make_shared<StripParseProtocol22ch16Arm>();
  RegisterNotificationCallback(kTriggerConfigured, [] {
    OnSensor<IMX252>("SeriesLogic22ch16Arm", [](IMX252& sensor) {
      sensor.SetCh16Mode(1);
      sensor.SetStripWidthFollow(true);
    });
  });
}

}  // namespace VeltranoSDK
