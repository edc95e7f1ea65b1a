// Timing of the e2v Flash 4K's exposure: blanking, sensing mode, exposure time, high dynamic range.
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "Devices/bus/Bytes.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4kTables.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "sensor_tables/E2vHdr.h"

namespace VeltranoSDK {

namespace {

constexpr char kName[] = "E2vFlash4k";

constexpr unsigned int kBlankingOffset = 127;
constexpr double kMicrosecondsPerLineClock = 0.06;
constexpr double kLaserMargin = 0.1;  // microseconds

// Microseconds.
constexpr double kExposureOverhead = 0.714;
constexpr double kExposureStep = 0.017;
constexpr double kMostSteps = 65535;
constexpr std::uint16_t kLongestExposure = 65534;

constexpr unsigned short kLeastK = 5;
constexpr unsigned short kMostK = 500;

std::span<const e2v::HdrEntry> HdrList(E2vFlash4k::KPosi posi) {
  switch (posi) {
    case E2vFlash4k::kPosiFirst:
      return e2v::kHdrFirst;
    case E2vFlash4k::kPosiSecond:
      return e2v::kHdrSecond;
    case E2vFlash4k::kPosiSquared:
      return e2v::kHdrSquared;
    default:
      return {};
  }
}

std::uint16_t HdrRegister(const e2v::HdrEntry& entry, unsigned int k) {
  const unsigned int square = k * k - k - 1;
  switch (entry.kind) {
    case e2v::HdrValue::kConstant:
      break;
    case e2v::HdrValue::kSub1:
      return LowHalf(k - 1);
    case e2v::HdrValue::kSqSubKLow:
      return LowHalf(square);
    case e2v::HdrValue::kSqSubKHigh:
      return LowHalf(square >> 16);
  }
  return entry.constant;
}

}  // namespace

bool E2vFlash4k::ModifyHorizontalBlanking(unsigned short blanking) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  const std::uint16_t line = LowHalf(blanking + e2v::kClocksBesideBlanking);
  if (!Write({e2v::kBlanking, LowHalf(blanking + kBlankingOffset)}, e2v::kInitWriteFailed)) {
    return false;
  }
  for (const std::uint16_t address : e2v::kLineLength) {
    if (!Write({address, line}, e2v::kInitWriteFailed)) return false;
  }
  if (!Write({e2v::kTripleLine, LowHalf(3u * line)}, e2v::kInitWriteFailed)) return false;
  blanking_ = blanking;
  const double laser_offset = std::ceil(line * kMicrosecondsPerLineClock + kLaserMargin);
  fpga->SetLaserOffsetTime(static_cast<unsigned int>(laser_offset));
  fpga->SetExpDelay();
  return true;
}

bool E2vFlash4k::ResetTgesAndVtr() {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  fpga->SetTGes(e2v::kTGes);
  fpga->SetExpDelay();
  return true;
}

bool E2vFlash4k::SetExposureTime(unsigned int time) {
  Trace(__func__);
  if (!sensing_) return false;
  const double step = std::pow(hdr_k_, hdr_exp_) * kExposureStep;
  const double steps = std::max(0.0, std::trunc((time - kExposureOverhead) / step));
  constexpr double kMostPrinted = std::numeric_limits<int>::max();
  LogDebug()(e2v::kExposureSteps, static_cast<int>(std::min(steps, kMostPrinted)));

  std::uint16_t value = 0;
  if (steps > kMostSteps) {
    LogError()(e2v::kExposureTooLong, time);
    value = kLongestExposure;
  } else if (steps == 0) {
    LogError()(e2v::kExposureTooShort, time);
  } else {
    value = LowHalf(static_cast<unsigned int>(steps) - 1);
  }
  if (e2v_spi_.Write(e2v::kExposure, value)) return true;
  LogError()(e2v::kExposureWriteFailed);
  return false;
}

bool E2vFlash4k::SetSensingMode(Sensing mode) {
  Trace(__func__);
  const bool sensing = mode == kSensingSensor;
  if (sensing == sensing_) return true;

  const auto [x, y, width, height, drive_mode, direction] = readout();
  sensing_ = sensing;
  if (!Reload()) {
    // Otherwise the next call would do nothing.
    sensing_ = !sensing;
    return false;
  }
  // Settings the chip refused are recorded too, and refused again here: no failure. Halved readout
  // always refuses its own region.
  const bool direction_set = SetReadoutDriveDirection(direction) || !TakesDirection(direction);
  const bool mode_set = SetReadoutDriveMode(drive_mode) || !TakesDriveMode(drive_mode) ||
                        !TakesRegion(roi_x_, roi_y_, roi_width_, roi_height_);
  const bool region_set = SetROI(x, y, width, height) || !TakesRegion(x, y, width, height);
  const bool gain_set = SetGain(gain_);
  const bool hdr_set = SetHDRParam(hdr_posi_, hdr_k_) || HdrList(hdr_posi_).empty();
  const bool timing_set = ResetTgesAndVtr();
  return direction_set && mode_set && region_set && gain_set && hdr_set && timing_set;
}

bool E2vFlash4k::Reload() {
  return LoadRegisters() && LoadControlMemories() && FinalConfiguration() &&
         ModifyHorizontalBlanking(blanking_) && LvdsTraining();
}

bool E2vFlash4k::SetHDRParam(KPosi posi, unsigned short k) {
  Trace(__func__);
  hdr_posi_ = posi;
  hdr_k_ = std::clamp(k, kLeastK, kMostK);
  hdr_exp_ = posi == kPosiSquared ? 2 : 1;
  LogDebug()("posi:%d\n", static_cast<int>(posi));

  const std::span<const e2v::HdrEntry> list = HdrList(posi);
  if (list.empty()) {
    LogError()("E2vFlash4k: there is no HDR position %u, positions are 0 to 2", unsigned{posi});
    return false;
  }
  const int factor = hdr_k_;
  if (posi == kPosiSquared) {
    LogDebug()("kSub1:%d, kSqSubK:%d\n", factor - 1, factor * factor - factor - 1);
  } else {
    LogDebug()("kSub1:%d\n", factor - 1);
  }

  std::vector<std::uint16_t> addresses;
  std::vector<std::uint16_t> values;
  for (const e2v::HdrEntry& entry : list) {
    addresses.push_back(entry.address);
    values.push_back(HdrRegister(entry, hdr_k_));
  }
  return BatchWriteRegister(addresses, {e2v::kHdrPage, values});
}

}  // namespace VeltranoSDK
