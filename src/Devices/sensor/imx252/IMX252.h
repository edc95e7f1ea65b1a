#pragma once

#include "Devices/sensor/sony/SonySensor.h"

namespace VeltranoSDK {

namespace imx252 {
struct LineTiming;
}

// 2064 x 1544 pixels. A region may be asked for in any mode and at any place; what
// lies outside the array is the caller's concern.
class IMX252 : public SonySensor {
 public:
  IMX252();

  // Writes the fixed settings, which come from the sensor's maker
  // (docs/sensor-tables.md).
  bool RegisterInitialize(ReadoutDriveMode mode) override;
  unsigned int GetCameraDelay() override;
  float GetExposureTimeUnit() override;
  unsigned int TransferMaxFrameValue() override;

  // 1 on boards that read the sensor over 16 channels. Takes effect with the next
  // programming.
  void SetCh16Mode(unsigned int mode) { ch16_mode_ = mode; }
  // Whether the FPGA's strip selector follows the width of every new region.
  void SetStripWidthFollow(bool follow) { strip_width_follow_ = follow; }

  // Output over 8 channels. A register that cannot be written is told and skipped.
  void Set8ChReg();

  // Restarts the sensor, and the FPGA's timing for it: 0, or -1 when the chip does
  // not answer.
  int PostReset();

  // Triggers until an image arrives, up to 22 times, and restarts the sensor after
  // every trigger in vain. Tells the outcome on the standard output. A test that
  // failed leaves the FPGA's global control on.
  //
  // The image thread reports once in the life of the process, with the first image
  // there is: one that came before the test has used the report up.
  void PowerOnSelfTest();

 protected:
  bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) override;
  // Modes 0x11 and 0x22 are one: the rows are halved, and so the FPGA is told. The
  // region becomes 2048 x 768 in both.
  bool SetReadoutDriveModeImpl(ReadoutDriveMode mode) override;

 private:
  static constexpr PowerUp kPowerUp{
      .wake_up = {2000, 2500, 200, 3000}, .t_ges = 16, .after_timing = 200, .after_standby = 2000};
  static constexpr WakeUp kSwitchPauses{2000, 2500, 1000, 3000};

  bool Has16Channels() const { return ch16_mode_ == 1; }
  const imx252::LineTiming& Line(const imx252::LineTiming& over_8_channels) const;
  bool WriteLine(const imx252::LineTiming& line);
  bool WriteFixedSettings();
  bool SwitchToFullReadout();
  bool SwitchToReducedReadout();

  unsigned int ch16_mode_ = 0;
  bool strip_width_follow_ = false;
};

}  // namespace VeltranoSDK
