#pragma once

#include <cstdint>

#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSIInterface.h"
#include "thread/Relaxed.h"

namespace VeltranoSDK {

// 2048 x 1152 pixels. The sensor crops rows, the FPGA columns.
//
// The bus reports no errors, so only parameters can be refused.
class GSPRINT6502BSI : public CmosSensor {
 public:
  GSPRINT6502BSI();

  // Always starts with every pixel and slow lines, whatever the mode. Writes the recommended
  // settings, which come from the sensor's maker (docs/sensor-tables.md).
  bool RegisterInitialize(ReadoutDriveMode mode) override;
  // 1 to 4.
  bool SetGain(unsigned int gain) override;
  unsigned int GetSensorTemp() override;
  // All ones: the chip does not report it.
  unsigned int GetSensorVer(unsigned int kind) override;
  unsigned int GetCameraDelay() override;
  float GetExposureTimeUnit() override;

  // High dynamic range. Its knees are counted in clocks of the lines, so set it again after
  // SetLineTime.
  bool SetHdr(bool on);
  // Lines of 72 clocks (fast) or 360.
  bool SetLineTime(bool fast);

  bool StreamEn(bool on);
  bool InternalSerClkEn(bool on);
  bool PmuUpDownCtrl(bool on);
  bool ConfigUpload();
  bool RecommandedRegisterSetting();
  // Stops the sensor, uploads its configuration, starts it and then the FPGA's timing for it.
  bool Reset();

  // Initialises again and restores direction, mode, region and gain. Lines are slow afterwards, and
  // high dynamic range is not restored. The region can be restored only in mode 0x00: in mode 0x11
  // this returns false.
  bool ResetAndInitialize();

 protected:
  bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) override;
  // In mode 0x11 the sensor subsamples, and the FPGA gets that mode. The image size stays, because
  // regions are accepted only in mode 0x00.
  bool SetReadoutDriveModeImpl(ReadoutDriveMode mode) override;
  // Accepts any: the sensor cannot flip; the FPGA does it for units mounted that way.
  bool SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) override;

 private:
  // Sets or clears all bits of the mask.
  void Switch(std::uint16_t address, std::uint8_t mask, bool on);
  void SetSubsampling(bool on);
  // Length of a line in the FPGA's units.
  unsigned int LineUnits() const;

  GSPRINT6502BSIInterface spi_;
  Relaxed<unsigned int> line_time_;
  unsigned int gain_ = 1;  // the level in effect: the recommended settings set the first
};

}  // namespace VeltranoSDK
