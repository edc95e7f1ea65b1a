#pragma once

#include "Devices/sensor/imx273/IMX273.h"
#include "Devices/sensor/sony/SonySensorTest.h"

namespace VeltranoSDK {

// A K3610, whose sensor is an IMX273.
class Imx273 : public SonySensorTest {
 protected:
  static IMX273& sensor() { return dynamic_cast<IMX273&>(*devices().cmos_sensor_); }

  // Switches the sensor to a mode and discards the transcript of the way there.
  void Enter(ReadoutDriveMode mode) {
    Printed([&] { ASSERT_TRUE(sensor().SetReadoutDriveMode(mode)); });
    tessaline_board_transcript_clear();
  }
};

}  // namespace VeltranoSDK
