#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <span>
#include <utility>
#include <vector>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/gsprint6502bsi/GsprintTables.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "sensor_tables/GsprintGain.h"
#include "sensor_tables/GsprintRecommended.h"
#include "tessaline/products.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr char kName[] = "GSPRINT6502BSI";

constexpr unsigned int kFullWidth = products::kGsprint6502.width;
constexpr unsigned int kFullHeight = products::kGsprint6502.height;
constexpr unsigned int kColumnStep = 32;
constexpr unsigned int kRowStep = 2;
constexpr unsigned int kRowsBeforeImage = 4;

constexpr unsigned int kFastLine = 72;  // the unit of the FPGA's timing
constexpr unsigned int kSlowLine = 360;
constexpr unsigned int kTGesPerLineUnit = 4;
constexpr unsigned char kFastMode = 0x48;
constexpr unsigned char kSlowMode = 0x68;

constexpr unsigned int kReadoutLatencyRows = 10;
constexpr float kExposureUnit = 1.1333333F;  // microseconds
constexpr unsigned int kUnknownVersion = 0xFFFFFFFF;

// In microseconds, like all pauses.
constexpr unsigned int kStreamPause = 10000;
constexpr unsigned int kUploadPause = 10000;
constexpr unsigned int kPowerPause = 100000;
constexpr unsigned int kTimingOffPause = 10000;
constexpr unsigned int kTimingArmedPause = 2000;

static_assert(gsprint::kRecommendedSettings.size() == 496,
              "sensor_tables/GsprintRecommended.h: the GSPRINT6502BSI takes 496 entries");
static_assert(gsprint::kGainRows.size() == 4,
              "sensor_tables/GsprintGain.h: the GSPRINT6502BSI has four gain levels");

}  // namespace

// The line time initialisation ends with: its first step already needs one.
GSPRINT6502BSI::GSPRINT6502BSI()
    : CmosSensor(kGSPRINT6502BSI, {kFullWidth, kFullHeight}), line_time_(kSlowLine) {}

bool GSPRINT6502BSI::RegisterInitialize(ReadoutDriveMode /*mode*/) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  PrepareTiming(*fpga, LineUnits() * kTGesPerLineUnit);
  if (!Reset() || !SetLineTime(false)) return false;
  puts("GSPRINT6502BSI init successful");
  return true;
}

bool GSPRINT6502BSI::Reset() {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  StreamEn(false);
  InternalSerClkEn(false);
  ConfigUpload();
  StreamEn(true);
  InternalSerClkEn(true);
  PmuUpDownCtrl(true);
  StartTiming(*fpga, kTimingOffPause, kTimingArmedPause);
  return true;
}

bool GSPRINT6502BSI::ResetAndInitialize() {
  Trace(__func__);
  return ResetAndRestore(kName, gain_);
}

bool GSPRINT6502BSI::StreamEn(bool on) {
  Trace(__func__);
  Switch(gsprint::kStream, 0x01, on);
  Switch(gsprint::kSerialOutput, 0x10, on);
  Pause(kStreamPause);
  return true;
}

// The serial clock runs by itself; the step keeps its place in the sequence.
bool GSPRINT6502BSI::InternalSerClkEn(bool /*on*/) {
  Trace(__func__);
  return true;
}

bool GSPRINT6502BSI::PmuUpDownCtrl(bool on) {
  Trace(__func__);
  Switch(gsprint::kPower, 0x01, on);
  Pause(kPowerPause);
  return true;
}

bool GSPRINT6502BSI::ConfigUpload() {
  Trace(__func__);
  const bool sent = RecommandedRegisterSetting();
  Pause(kUploadPause);
  return sent;
}

bool GSPRINT6502BSI::RecommandedRegisterSetting() {
  Trace(__func__);
  std::vector<std::pair<unsigned short, unsigned char>> list;
  list.reserve(gsprint::kRecommendedSettings.size());
  for (const auto& entry : gsprint::kRecommendedSettings) {
    list.emplace_back(entry.address, entry.value);
  }
  return spi_.BatchWrite(list);
}

bool GSPRINT6502BSI::SetGain(unsigned int gain) {
  Trace(__func__);
  const auto levels = static_cast<unsigned int>(gsprint::kGainRows.size());
  gain_ = std::clamp(gain, 1u, levels);
  const auto& values = gsprint::kGainRows[gain_ - 1].values;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto& [address, mask] = gsprint::kGainRegisters[i];
    // Bits outside the mask do not belong to the gain.
    Update(spi_, address, mask, values[i] & mask);
  }
  return true;
}

unsigned int GSPRINT6502BSI::GetSensorTemp() {
  Trace(__func__);
  const unsigned int high = spi_.Read(gsprint::kTemperatureHigh);
  const unsigned int low = spi_.Read(gsprint::kTemperatureLow);
  return WordOf(high, low);
}

unsigned int GSPRINT6502BSI::GetSensorVer(unsigned int /*kind*/) {
  Trace(__func__);
  return kUnknownVersion;
}

unsigned int GSPRINT6502BSI::GetCameraDelay() {
  return (((roi_height_ + kRowsBeforeImage) >> 1) + kReadoutLatencyRows) * LineUnits();
}

float GSPRINT6502BSI::GetExposureTimeUnit() { return kExposureUnit; }

bool GSPRINT6502BSI::SetHdr(bool on) {
  Trace(__func__);
  const std::span<const RegisterWrite> settings =
      on ? std::span<const RegisterWrite>(gsprint::kHdrOn) : gsprint::kHdrOff;
  for (const auto& [address, value, mask, named] : settings) Update(spi_, address, mask, value);
  if (on) {
    for (const std::uint16_t knee : gsprint::kHdrKnees) WriteWord(spi_, knee, line_time_ * 4);
  }
  return true;
}

bool GSPRINT6502BSI::SetLineTime(bool fast) {
  LogDebug()(" -------------- %d", fast);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  line_time_ = fast ? kFastLine : kSlowLine;
  spi_.Write(gsprint::kLineTimeMode, fast ? kFastMode : kSlowMode);
  Update(spi_, gsprint::kLineTimeSlow, 0x3F, fast ? 0x00 : 0x01);
  fpga->SetTGes(LineUnits() * kTGesPerLineUnit);
  return true;
}

bool GSPRINT6502BSI::SetROIImpl(unsigned int x, unsigned int y, unsigned int width,
                                unsigned int height) {
  Trace(__func__);
  LogDebug()("ROI left, top, width, height: %d, %d, %d, %d ", x, y, width, height);
  if (std::uint64_t{x} + width > kFullWidth || x % kColumnStep != 0 || width % kColumnStep != 0 ||
      height % kRowStep != 0) {
    return false;
  }
  if (read_out_drive_mode_ != kDriveMode00) {
    LogError()("ROI read_out_drive_mode error");
    return false;
  }
  LogDebug()("ROI OK");
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  WriteWord(spi_, gsprint::kRowCount, height & gsprint::kRowBits);
  WriteWord(spi_, gsprint::kFirstRow, (y + kRowsBeforeImage) & gsprint::kRowBits);
  WriteWord(spi_, gsprint::kRowCountCopy, height & gsprint::kRowBits);

  fpga->SetImageReadoutParam(x, width, kDriveMode00);
  fpga->SetImageSize(width, height);
  fpga->SetImageFilterSize(LowHalf(width), LowHalf(height));
  fpga->SetStripSelectorImgWidth(LowHalf(width));
  fpga->SetISPHeight(height);
  fpga->SetExpDelay();
  return true;
}

bool GSPRINT6502BSI::SetReadoutDriveModeImpl(ReadoutDriveMode mode) {
  Trace(__func__);
  if (mode != kDriveMode00 && mode != kDriveMode11) {
    puts("SetDriveMode invalid parameter");
    return false;
  }
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  SetSubsampling(mode == kDriveMode11);
  // Fails in mode 0x11, which does not change the result.
  SetROIImpl(0, 0, roi_width_, roi_height_);
  fpga->SetPLDriveMode(mode);
  return true;
}

bool GSPRINT6502BSI::SetReadoutDriveDirectionImpl(ReadoutDriveDirection /*direction*/) {
  Trace(__func__);
  return true;
}

void GSPRINT6502BSI::SetSubsampling(bool on) {
  Switch(gsprint::kSubsampling, 0x01, on);
  spi_.Write(gsprint::kSubsamplingOn, on ? 0x01 : 0x00);
  Switch(gsprint::kSubsamplingRows, 0x03, on);
}

void GSPRINT6502BSI::Switch(std::uint16_t address, std::uint8_t mask, bool on) {
  Update(spi_, address, mask, on ? mask : 0);
}

unsigned int GSPRINT6502BSI::LineUnits() const { return line_time_ / kFastLine; }

}  // namespace VeltranoSDK
