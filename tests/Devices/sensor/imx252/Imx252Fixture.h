// The IMX252 driver on a K3710 board.
#pragma once

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/imx252/IMX252.h"
#include "Devices/sensor/sony/SonySensorTest.h"

namespace VeltranoSDK {

// T_GES is 16.
inline std::string RowTime(unsigned row_time) {
  return Fpga(fpga::kReg.SENSOR_TIMING, row_time << 5 | 16);
}
inline Lines ImageSize(unsigned width, unsigned height) {
  return {Fpga(fpga::kReg.STRIP_IMAGE_WIDTH, width), Fpga(fpga::kReg.STRIP_IMAGE_HEIGHT, height)};
}
inline std::string Delay(unsigned height) { return Fpga(fpga::kReg.EXP_DELAY, height + 41); }
inline std::string DriveCode(unsigned code) { return Fpga(fpga::kReg.ROI_OFFSET, code << 25); }

inline std::string InitError(const std::string& reg, int) { return "init error 0x" + reg + "\n"; }

class Imx252 : public SonySensorTest {
 protected:
  explicit Imx252(const char* model = "K3710", SeriesNumber series = kSeries22)
      : SonySensorTest(model, series) {}

  static IMX252& sensor() { return dynamic_cast<IMX252&>(*devices().cmos_sensor_); }

  // Switches the sensor to a mode and discards the transcript of the way there.
  void Enter(ReadoutDriveMode mode) {
    Printed([&] { ASSERT_TRUE(sensor().SetReadoutDriveMode(mode)); });
    tessaline_board_transcript_clear();
  }
};

}  // namespace VeltranoSDK
