// The user's settings of the e2v Flash 4K: region, readout mode and direction, gain.
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"

#include <cstdio>
#include <memory>

#include "Devices/bus/Bytes.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4kTables.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "sensor_tables/E2vGain.h"
#include "sensor_tables/E2vReadoutMode.h"
#include "tessaline/products.h"

namespace VeltranoSDK {

namespace {

constexpr char kName[] = "E2vFlash4k";

constexpr unsigned int kFullWidth = products::kE2vFlash4k.width;
constexpr unsigned int kFullHeight = products::kE2vFlash4k.height;
constexpr unsigned int kColumnStep = 64;
constexpr unsigned int kRowStep = 8;

constexpr unsigned int kRowsBesideRegion = 16;
constexpr float kExposureUnit = 0.06666667F;  // microseconds
constexpr unsigned int kUnknownVersion = 0xFFFFFFFF;

constexpr std::uint16_t kRowsReversed = 0x0004;
constexpr std::uint16_t kHalved = 0x0001;

std::span<const e2v::PagedEntry> GainList(unsigned int gain) {
  if (gain < 2) return e2v::kGainLow;
  if (gain <= 3) return e2v::kGainMiddle;
  return e2v::kGainHigh;
}

}  // namespace

E2vFlash4k::E2vFlash4k()
    : CmosSensor(kE2vFlash4k, {kFullWidth, kFullHeight}, products::kE2vFlash4k.strips) {}

bool E2vFlash4k::SetGain(unsigned int gain) {
  Trace(__func__);
  gain_ = gain;
  return WriteList(GainList(gain));
}

unsigned int E2vFlash4k::GetSensorTemp() {
  Trace(__func__);
  return 0;
}

unsigned int E2vFlash4k::GetSensorVer(unsigned int /*kind*/) {
  Trace(__func__);
  return kUnknownVersion;
}

bool E2vFlash4k::TakesRegion(unsigned int x, unsigned int y, unsigned int width,
                             unsigned int height) {
  return width >= kColumnStep && height >= kRowStep && x % kColumnStep == 0 &&
         width % kColumnStep == 0 && y % kRowStep == 0 && height % kRowStep == 0 &&
         std::uint64_t{x} + width <= kFullWidth && std::uint64_t{y} + height <= kFullHeight;
}

bool E2vFlash4k::TakesDriveMode(ReadoutDriveMode mode) {
  return mode == kDriveMode00 || mode == kDriveMode11;
}

bool E2vFlash4k::TakesDirection(ReadoutDriveDirection direction) {
  return direction == kNormal || direction == kVerticalFlip;
}

unsigned int E2vFlash4k::GetCameraDelay() {
  if (sensing_) return 0;
  const unsigned int line = blanking_ + e2v::kClocksBesideBlanking;
  const unsigned int frame = (roi_height_ + kRowsBesideRegion) * line >> 4;
  const auto half = static_cast<unsigned int>(line * 1.5) >> 2;
  const unsigned int triple = line * 3 >> 2;
  return static_cast<unsigned int>(frame + half + 28.0 + triple);
}

float E2vFlash4k::GetExposureTimeUnit() { return kExposureUnit; }

bool E2vFlash4k::SetROIImpl(unsigned int x, unsigned int y, unsigned int width,
                            unsigned int height) {
  Trace(__func__);
  printf(e2v::kRoiAsked, x, y, width, height);
  if (!TakesRegion(x, y, width, height)) {
    printf(e2v::kRoiRefused, x, y, width, height);
    return false;
  }
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  puts(e2v::kRoiTaken);
  const e2v::Write region[]{
      {e2v::kFirstColumn, LowHalf(x / kColumnStep)},
      {e2v::kColumnCount, LowHalf(width / kColumnStep - 1)},
      {e2v::kFirstRow, LowHalf(y / kRowStep)},
      {e2v::kRowCount, LowHalf(height / kRowStep - 1)},
  };
  if (!WriteAll(region, e2v::kRoiWriteFailed)) return false;
  if (!e2v_spi_.UpdateRegisters()) {
    puts(e2v::kInitUpdateRegistersFailed);
    return false;
  }
  if (!e2v_spi_.UpdateROI()) {
    puts(e2v::kInitUpdateRoiFailed);
    return false;
  }

  fpga->SetImageReadoutParam(x, width, read_out_drive_mode_);
  fpga->SetImageSize(roi_width_, roi_height_);
  fpga->SetStripSelectorImgWidth(LowHalf(roi_width_));
  fpga->SetExpDelay();
  neighbour::FitImageFormat(kName, roi_width_, roi_height_);
  return true;
}

bool E2vFlash4k::SetReadoutDriveModeImpl(ReadoutDriveMode mode) {
  Trace(__func__);
  if (!TakesDriveMode(mode)) {
    puts(e2v::kUnknownDriveMode);
    return false;
  }
  const bool halved = mode == kDriveMode11;
  const auto switch_bits = [&](std::uint16_t address, std::uint16_t mask) {
    return Update(address, mask, halved ? mask : std::uint16_t{0}, e2v::kDriveModeWriteFailed);
  };
  if (!switch_bits(e2v::kReducedReadout, kHalved)) return false;
  for (const auto& [address, mask, placeholder] : e2v::kHalvedReadoutBits) {
    if (!switch_bits(address, mask)) return false;
  }
  if (!SetROI(roi_x_, roi_y_, roi_width_, roi_height_)) {
    puts(e2v::kDriveModeRoiFailed);
    return false;
  }
  return true;
}

bool E2vFlash4k::SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) {
  Trace(__func__);
  if (!TakesDirection(direction)) {
    const bool columns = direction == kHorizontalFlip || direction == kBothFlip;
    puts(columns ? e2v::kNoHorizontalFlip : e2v::kUnknownDirection);
    return false;
  }
  const auto [ok, old] = e2v_spi_.Read(e2v::kReadoutControl);
  if (!ok) return true;
  const unsigned int rows = direction == kVerticalFlip ? kRowsReversed : 0;
  return Write({e2v::kReadoutControl, LowHalf(Replaced(old, kRowsReversed, rows))},
               e2v::kDirectionWriteFailed);
}

}  // namespace VeltranoSDK
