// Start-up of the e2v Flash 4K: clocks and slices, the maker's tables, LVDS outputs, and the check
// with the chip's test image.

#include <algorithm>
#include <cstdio>
#include <memory>

#include "Devices/bus/Bytes.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4kTables.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "sensor_tables/E2vControlMemories.h"
#include "sensor_tables/E2vFinalConfiguration.h"
#include "sensor_tables/E2vLvdsTraining.h"
#include "sensor_tables/E2vRegisters.h"
#include "sensor_tables/E2vTestImage.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr char kName[] = "E2vFlash4k";

constexpr unsigned int kRowTime = 7;

// In microseconds, like all pauses.
constexpr unsigned int kStatusPause = 1000;
constexpr unsigned int kGeometryPause = 1500;
constexpr unsigned int kTimingOffPause = 100;
constexpr unsigned int kTimingArmedPause = 2000;

static_assert(e2v::kFinalConfiguration.size() == 34, "the chip takes 34 registers");

}  // namespace

bool E2vFlash4k::RegisterInitialize(ReadoutDriveMode mode) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  PrepareTiming(*fpga, e2v::kTGes);

  if (!InitClocksAndSlicesConfig() || !LoadRegisters() || !LoadControlMemories() ||
      !FinalConfiguration() || !LvdsTraining() ||
      !ModifyHorizontalBlanking(e2v::kStartUpBlanking)) {
    return false;
  }
  if (mode != kDriveMode00) return false;

  fpga->SetTRow(kRowTime);
  fpga->SetImageReadoutParam(0, roi_width_, kDriveMode00);
  fpga->SetStripSelectorImgWidth(LowHalf(roi_width_));
  Pause(kGeometryPause);
  fpga->SetExpDelay();
  fpga->SetPLDriveMode(kDriveMode00);
  fpga->SetImageSize(roi_width_, roi_height_);
  Pause(kGeometryPause);
  StartTiming(*fpga, kTimingOffPause, kTimingArmedPause);
  return PrintStatusReg();
}

bool E2vFlash4k::PrintStatusReg() {
  Trace(__func__);
  const auto [ok, status] = e2v_spi_.Read(e2v::kStatusRegister);
  if (!ok) {
    puts(e2v::kPllReadFailed);
    return false;
  }
  printf(e2v::kStatus, status);
  return true;
}

bool E2vFlash4k::InitClocksAndSlicesConfig() {
  Trace(__func__);
  if (SetUpClocksAndSlices()) return true;
  puts(e2v::kClocksFailed);
  return false;
}

bool E2vFlash4k::SetUpClocksAndSlices() {
  for (const auto& [address, expected] : e2v::kIdentity) {
    const auto [ok, value] = e2v_spi_.Read(address);
    if (ok && value == expected) continue;
    PrintRegister(e2v::kInitReadFailed, address);
    return false;
  }
  if (!WriteAll(e2v::kClockSetUp, e2v::kInitWriteFailed) || !AwaitStatus(e2v::kPllLocked) ||
      !WriteAll(e2v::kSliceClock, e2v::kInitWriteFailed)) {
    return false;
  }
  const auto& [a, b, c, d] = e2v::kSlices;
  if (!e2v_spi_.ConfigSlice(a, b, c, d)) {
    puts(e2v::kSlicesFailed);
    return false;
  }
  return WriteAll(e2v::kSliceSetUp, e2v::kInitWriteFailed) && AwaitStatus(e2v::kSlicesConfigured) &&
         WriteAll(e2v::kSliceStart, e2v::kInitWriteFailed) && AwaitStatus(e2v::kReadoutReady);
}

bool E2vFlash4k::AwaitStatus(const e2v::StatusWait& wait) {
  for (;;) {
    const auto [ok, status] = e2v_spi_.Read(e2v::kStatusRegister);
    if (!ok) {
      puts(wait.read_failed);
      return false;
    }
    const unsigned long reached = status & wait.mask;
    if (reached == wait.mask) {
      puts(wait.pass);
      return true;
    }
    printf(wait.miss, reached);
    Pause(kStatusPause);
  }
}

bool E2vFlash4k::LoadRegisters() {
  Trace(__func__);
  return LoadTable(e2v::kRegisters);
}

bool E2vFlash4k::LoadControlMemories() {
  Trace(__func__);
  if (!e2v_spi_.Write(e2v::kControlMemoryAccess, 0)) {
    puts(e2v::kControlMemoryAccessFailed);
    return false;
  }
  return LoadTable(e2v::kControlMemories);
}

bool E2vFlash4k::FinalConfiguration() {
  Trace(__func__);
  if (Configure()) return true;
  puts(e2v::kFinalConfigurationFailed);
  return false;
}

bool E2vFlash4k::Configure() {
  std::vector<e2v::PagedEntry> list;
  for (const e2v::FinalEntry& entry : e2v::kFinalConfiguration) {
    const std::uint16_t value = sensing_ ? entry.sensor_timed : entry.fpga_timed;
    list.push_back({0, entry.address, value, entry.placeholder, entry.mask});
  }
  return WriteList(list) && e2v_spi_.UpdateRegisters() && e2v_spi_.UpdateROI() &&
         e2v_spi_.Write(e2v::kConfigurationDone, 1);
}

bool E2vFlash4k::LvdsTraining() {
  Trace(__func__);
  if (WriteAll(e2v::kLvdsSetUp, e2v::kInitWriteFailed) && WriteList(e2v::kLvdsTraining))
    return true;
  puts(e2v::kLvdsTrainingFailed);
  return false;
}

bool E2vFlash4k::TestImage() {
  Trace(__func__);
  puts(e2v::kTestImage);
  if (CheckTestImage()) return true;
  puts(e2v::kTestImageFailed);
  return false;
}

bool E2vFlash4k::CheckTestImage() {
  if (!Write({e2v::kTestPattern, 1}, e2v::kTestImageWriteFailed) ||
      !WriteList(e2v::kTestImageCheck)) {
    return false;
  }
  if (!e2v_spi_.UpdateRegisters()) {
    puts(e2v::kTestImageUpdateRegistersFailed);
    return false;
  }
  if (!e2v_spi_.UpdateROI()) {
    puts(e2v::kTestImageUpdateRoiFailed);
    return false;
  }
  return WriteAll(e2v::kTestImageEnd, e2v::kTestImageWriteFailed);
}

}  // namespace VeltranoSDK
