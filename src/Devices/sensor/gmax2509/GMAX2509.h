#pragma once

#include <cstdint>
#include <memory>

#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/gmax2509/GMAX2509SpiInterface.h"

namespace VeltranoSDK {

class SeriesLogic23;

// The chip's PLL settings as values of their registers' fields: the multiplier starts at bit 2 of
// its register, the divider has two bits.
enum PllMult : unsigned int {};
enum PllDiv : unsigned int {};

// 4200 x 2048 pixels, or 4200 x 1024 in products that always run subsampled; the series decides
// which. The sensor crops rows, the FPGA columns.
//
// The bus reports no errors, so only parameters can be refused.
class GMAX2509 : public CmosSensor {
 public:
  GMAX2509();

  // Writes the initialisation table, whose constant entries come from the sensor's
  // maker (docs/sensor-tables.md).
  bool RegisterInitialize(ReadoutDriveMode mode) override;
  // 1 to 5.
  bool SetGain(unsigned int gain) override;
  unsigned int GetSensorTemp() override;
  // All ones: the chip does not report it.
  unsigned int GetSensorVer(unsigned int kind) override;
  unsigned int GetCameraDelay() override;
  float GetExposureTimeUnit() override;
  unsigned int TransferMaxFrameValue() override;

  // Both change the clocking, which requires a full initialisation. They restore the user's
  // settings, see ResetAndInitialize().
  bool SetPLL(PllMult mult, PllDiv div);
  // In clocks of the sensor.
  bool SetLineTime(unsigned short line_time);

  // Resets and initialises the sensor, then restores direction, mode, region and gain. Regions
  // exist only in mode 0x00: in mode 0x11 this returns false, and the sensor runs in that mode at
  // its own size.
  bool ResetAndInitialize();

 protected:
  // Whole blocks of 28 columns, at least 560 columns, only in mode 0x00.
  bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) override;
  bool SetReadoutDriveModeImpl(ReadoutDriveMode mode) override;
  // A horizontal flip alone does not move the first row.
  bool SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) override;

 private:
  void WriteInitTable();
  // Length of a line in the FPGA's units.
  unsigned int LineUnits() const;
  bool AlwaysSubsampled() const;

  GMAX2509SpiInterface spi_;
  std::uint8_t pll_div_reg_;
  std::uint8_t pll_mult_reg_;
  std::uint16_t line_time_;
  unsigned int gain_ = 1;  // as requested, not clamped
  std::shared_ptr<SeriesLogic23> series_logic_;
};

}  // namespace VeltranoSDK
