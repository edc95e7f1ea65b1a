#pragma once

#include "Devices/sensor/sony/SonySensor.h"

namespace VeltranoSDK {

namespace imx252 {
struct LineTiming;
}

// 2064 x 1544 pixels. Accepts any region in any mode; the caller must keep it inside the array.
class IMX252 : public SonySensor {
 public:
  IMX252();

  // Writes the fixed settings, which come from the sensor's maker (docs/sensor-tables.md).
  bool RegisterInitialize(ReadoutDriveMode mode) override;
  unsigned int GetCameraDelay() override;
  float GetExposureTimeUnit() override;
  unsigned int TransferMaxFrameValue() override;

  // 1 on boards that read the sensor over 16 channels. Takes effect at the next programming.
  void SetCh16Mode(unsigned int mode) { ch16_mode_ = mode; }
  // Whether the FPGA's strip selector follows the width of every new region.
  void SetStripWidthFollow(bool follow) { strip_width_follow_ = follow; }

  // Output over 8 channels. A register that cannot be written is reported and skipped.
  void Set8ChReg();

  // Restarts the sensor and the FPGA's timing for it: 0, or -1 when the chip does not answer.
  int PostReset();

  // Triggers until an image arrives, up to 22 times, and restarts the sensor after every trigger
  // without one. Prints the outcome on standard output. A failed test leaves the FPGA's global
  // control on.
  //
  // The image thread reports only the first image of the process; one before the test uses up the
  // report.
  void PowerOnSelfTest();

 protected:
  bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) override;
  // Modes 0x11 and 0x22 do the same: rows are halved, and the FPGA gets 0x22. The region becomes
  // 2048 x 768 in both.
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
