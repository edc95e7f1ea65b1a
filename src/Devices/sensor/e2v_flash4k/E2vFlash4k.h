#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/e2v_flash4k/E2vSpiInterface.h"
#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK {

// e2v Flash 4K, 4096 x 1080 pixels. It cannot flip columns.
//
// The chip's maker supplies (docs/sensor-tables.md) the register and control memory tables, the
// final configuration, the gain and HDR lists, and the procedures for LVDS training and test image.
//
// Initialisation, and everything that ends in an update of registers or region, poll the chip
// without a limit: one that never locks or stays busy blocks the calling thread. No lock is held
// meanwhile.
class E2vFlash4k : public CmosSensor {
 public:
  // Who times the exposure.
  enum Sensing : unsigned int { kSensingFpga = 0, kSensingSensor = 1 };
  // Where the HDR factor k bends the response; in kPosiSquared it acts twice.
  enum KPosi : unsigned int { kPosiFirst = 0, kPosiSecond = 1, kPosiSquared = 2 };

  E2vFlash4k();

  // The sensor can start only in mode 0x00; any other is refused after the chip is set up.
  bool RegisterInitialize(ReadoutDriveMode mode) override;
  // Three ranges: below 2; 2 and 3; above.
  bool SetGain(unsigned int gain) override;
  // 0: the chip has no temperature sensor.
  unsigned int GetSensorTemp() override;
  // All ones: the chip does not report it.
  unsigned int GetSensorVer(unsigned int kind) override;
  // 0 while the sensor times the exposure.
  unsigned int GetCameraDelay() override;
  float GetExposureTimeUnit() override;

  // Whether the sensor times the exposure.
  bool sensing() const { return sensing_; }

  // Exposure timed by the sensor, in microseconds. While the FPGA times it, returns false and
  // writes nothing. Out-of-range times are clamped.
  bool SetExposureTime(unsigned int time);
  // Reloads the chip when the mode changes and restores the user's settings. Settings it had
  // refused are refused again; that is no failure.
  bool SetSensingMode(Sensing mode);
  // k is clamped to 5 .. 500.
  bool SetHDRParam(KPosi posi, unsigned short k);
  // Clocks between two lines.
  bool ModifyHorizontalBlanking(unsigned short blanking);
  // Resets the FPGA's line timing to the values that initialisation sets.
  bool ResetTgesAndVtr();

  // Steps of the initialisation, in this order.
  bool InitClocksAndSlicesConfig();
  bool LoadRegisters();
  bool LoadControlMemories();
  bool FinalConfiguration();
  bool LvdsTraining();

  // Checks the data path with the chip's own test image.
  bool TestImage();
  bool PrintStatusReg();

  // Writes registers of one page in order, then selects page 0.
  bool BatchWriteRegister(const std::vector<std::uint16_t>& addresses,
                          const std::pair<unsigned char, std::vector<std::uint16_t>>& page_value);
  // False and the values read so far when an access fails.
  std::pair<bool, std::vector<std::uint16_t>> BatchReadRegister(
      unsigned char page, const std::vector<std::uint16_t>& addresses);

 protected:
  // Columns in steps of 64, rows in steps of 8.
  bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) override;
  // Re-applies the recorded region. Half of 1080 rows is not a multiple of 8, so mode 0x11 switches
  // the sensor to reduced readout and then fails on the region; a valid region set afterwards
  // works.
  bool SetReadoutDriveModeImpl(ReadoutDriveMode mode) override;
  // Returns true and leaves the chip unchanged when its register cannot be read.
  bool SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) override;

 private:
  static bool TakesRegion(unsigned int x, unsigned int y, unsigned int width, unsigned int height);
  static bool TakesDriveMode(ReadoutDriveMode mode);
  static bool TakesDirection(ReadoutDriveDirection direction);

  // `failure` is a format for the number of the register that failed.
  bool Write(const e2v::Write& write, const char* failure);
  bool WriteAll(std::span<const e2v::Write> writes, const char* failure);
  // Replaces the bits in `mask`; a failed read counts as a failed write.
  bool Update(std::uint16_t address, std::uint16_t mask, std::uint16_t bits, const char* failure);
  static void PrintRegister(const char* format, std::uint16_t address);
  // Writes a list that may span pages, page by page.
  bool WriteList(std::span<const e2v::PagedEntry> list);
  // The same for tables that are loaded: selects each page once more before it.
  bool LoadTable(std::span<const e2v::PagedEntry> table);
  // Reads registers that keep bits first; otherwise only writes.
  bool WritePage(unsigned char page, std::span<const e2v::PagedEntry> entries);
  bool ReturnToPage0(const char* failure);

  bool SetUpClocksAndSlices();
  bool AwaitStatus(const e2v::StatusWait& wait);
  bool Configure();
  bool CheckTestImage();
  // Reloads the chip after a change of sensing mode.
  bool Reload();

  E2vSpiInterface e2v_spi_;
  std::uint16_t blanking_ = 256;  // as initialisation sets it
  unsigned int gain_ = 1;
  bool sensing_ = false;
  KPosi hdr_posi_ = kPosiFirst;
  std::uint16_t hdr_k_ = 10;
  std::uint16_t hdr_exp_ = 1;
};

}  // namespace VeltranoSDK
