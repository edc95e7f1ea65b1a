#include "Devices/sensor/gmax2509/GMAX2509.h"

#include <algorithm>
#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/RegisterWrite.h"
#include "Devices/sensor/gmax2509/Gmax2509Registers.h"
#include "Neighbours.h"
#include "SeriesLogic/SeriesLogic23.h"
#include "log/Log.h"
#include "sensor_tables/Gmax2509Init.h"
#include "tessaline/products.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

using namespace gmax2509;  // NOLINT(google-build-using-namespace): its registers

static_assert(kInitTable.size() == kInitEntries,
              "sensor_tables/Gmax2509Init.h: the GMAX2509 takes 98 entries");

constexpr char kName[] = "GMAX2509";

constexpr unsigned int kFullWidth = products::kGmax2509.width;
// Half of its rows are recorded until a region is set.
constexpr unsigned int kFullHeight = products::kGmax2509.height / 2;
constexpr unsigned int kColumnBlock = 28;
constexpr unsigned int kNarrowest = 560;

constexpr std::uint8_t kStreamingBit = 0x02;
constexpr std::uint8_t kHorizontalFlipBit = 0x10;
constexpr std::uint8_t kUprightBit = 0x40;
constexpr std::uint8_t kProgrammingBits = 0xF0;
constexpr std::uint8_t kInProgramming = 0x40;
constexpr unsigned int kGainBit = 0x40;
constexpr unsigned int kLowestGain = 1;
constexpr unsigned int kHighestGain = 5;

constexpr unsigned int kUnknownVersion = 0xFFFFFFFF;
constexpr unsigned int kMaxFrameValue = 0x00981508;
constexpr float kExposureUnit = 1.5833334F;  // microseconds
constexpr unsigned int kLinesBesideRegion = 21;
constexpr unsigned int kClocksPerLineUnit = 152;
constexpr std::uint16_t kLineTimeAtPowerUp = 10 * kClocksPerLineUnit;
constexpr unsigned int kTGesPerLineUnit = 8;
constexpr unsigned int kRowTime = 151;

// The configuration word; 8 bits of it go into the table.
constexpr unsigned int kConfiguration = 0x3DA0;
constexpr unsigned int kConfigurationShift = 6;

constexpr PllDiv kDivAtPowerUp{0};
constexpr PllMult kMultAtPowerUp{9};

// In microseconds, like all pauses.
constexpr unsigned int kTablePause = 1500;
constexpr unsigned int kClockPause = 6500;
constexpr unsigned int kTimingOffPause = 10000;
constexpr unsigned int kTimingArmedPause = 2000;
constexpr unsigned int kTimingOnPause = 10000;
constexpr unsigned int kModePause = 100;

constexpr std::uint8_t DividerRegister(PllDiv div) { return LowByte((div & 0x03u) << 6 | 0x30u); }
constexpr std::uint8_t MultiplierRegister(PllMult mult) { return LowByte(mult << 2 | 0x80u); }

// What the FPGA needs to know about a new image.
void FollowSize(FpgaLogic& fpga, unsigned int x, unsigned int width, unsigned int height,
                ReadoutDriveMode mode) {
  fpga.SetImageReadoutParam(x, width, mode);
  fpga.SetImageSize(width, height);
  fpga.SetImageFilterSize(LowHalf(width), LowHalf(height));
  fpga.SetExpDelay();
}

}  // namespace

GMAX2509::GMAX2509()
    : CmosSensor(kGMAX2509, {kFullWidth, kFullHeight}, products::kGmax2509.strips),
      pll_div_reg_(DividerRegister(kDivAtPowerUp)),
      pll_mult_reg_(MultiplierRegister(kMultAtPowerUp)),
      line_time_(kLineTimeAtPowerUp),
      series_logic_(std::dynamic_pointer_cast<SeriesLogic23>(neighbour::Series(kName))) {
  if (series_logic_) {
    // The recorded region keeps its size until one is set.
    resolution_ = {series_logic_->limit_a(), series_logic_->limit_b()};
  } else {
    LogError()("%s: the selected product does not say how it uses this sensor", kName);
  }
}

bool GMAX2509::RegisterInitialize(ReadoutDriveMode mode) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  PrepareTiming(*fpga, LineUnits() * kTGesPerLineUnit);

  Update(spi_, kStreaming, kStreamingBit, 0);
  Update(spi_, kProgramming, kProgrammingBits, kInProgramming);
  WriteInitTable();
  fpga->SetTRow(kRowTime);
  fpga->SetImageReadoutParam(0, roi_width_, kDriveMode00);
  Pause(kTablePause);
  Update(spi_, kProgramming, kProgrammingBits, 0);
  Pause(kClockPause);
  Update(spi_, kStreaming, kStreamingBit, kStreamingBit);

  fpga->SetExpDelay();
  fpga->SetPLDriveMode(mode);
  fpga->SetImageSize(roi_width_, roi_height_);
  fpga->SetImageFilterSize(LowHalf(roi_width_), LowHalf(roi_height_));
  Pause(kTablePause);

  StartTiming(*fpga, kTimingOffPause, kTimingArmedPause);
  Pause(kTimingOnPause);
  puts("2509 init successful");
  return true;
}

void GMAX2509::WriteInitTable() {
  const auto value = [this](const InitValue& entry) -> std::uint8_t {
    switch (entry.computed) {
      case Computed::kRowSubsampling:
        return AlwaysSubsampled() ? 1 : 0;
      case Computed::kRowCountLow:
        return LowByte(roi_height_);
      case Computed::kRowCountHigh:
        return HighByte(roi_height_);
      case Computed::kPllDivider:
        return pll_div_reg_;
      case Computed::kPllMultiplier:
        return pll_mult_reg_;
      case Computed::kLineTimeLow:
        return LowByte(line_time_);
      case Computed::kLineTimeHigh:
        return HighByte(line_time_);
      case Computed::kGain:
        // Not clamped: SetGain() follows where it matters.
        return LowByte(gain_ | kGainBit);
      case Computed::kConfiguration:
        return LowByte(kConfiguration >> kConfigurationShift);
      case Computed::kNo:
        break;
    }
    return entry.constant;
  };
  for (const InitEntry& entry : kInitTable) spi_.Write(entry.address, value(entry.value));
}

bool GMAX2509::SetGain(unsigned int gain) {
  Trace(__func__);
  gain_ = gain;
  const unsigned int effective = std::clamp(gain, kLowestGain, kHighestGain);
  spi_.Write(kGainControl, LowByte(effective | kGainBit));
  spi_.Write(kGain, LowByte(effective));
  return true;
}

unsigned int GMAX2509::GetSensorTemp() {
  Trace(__func__);
  const unsigned int low = spi_.Read(kTemperatureLow);
  const unsigned int high = spi_.Read(kTemperatureHigh);
  return WordOf(high, low);
}

unsigned int GMAX2509::GetSensorVer(unsigned int /*kind*/) {
  Trace(__func__);
  return kUnknownVersion;
}

unsigned int GMAX2509::GetCameraDelay() { return (roi_height_ + kLinesBesideRegion) * LineUnits(); }

float GMAX2509::GetExposureTimeUnit() { return kExposureUnit; }

unsigned int GMAX2509::TransferMaxFrameValue() { return kMaxFrameValue; }

bool GMAX2509::SetPLL(PllMult mult, PllDiv div) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  fpga->SetCmosTimingControl(kOff, kOff);
  pll_div_reg_ = DividerRegister(div);
  pll_mult_reg_ = MultiplierRegister(mult);
  spi_.Write(kPllDivider, pll_div_reg_);
  spi_.Write(kPllMultiplier, pll_mult_reg_);
  return ResetAndInitialize();
}

bool GMAX2509::SetLineTime(unsigned short line_time) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  fpga->SetCmosTimingControl(kOff, kOff);
  WriteWord(spi_, kLineTimeLow, line_time);
  line_time_ = line_time;
  return ResetAndInitialize();
}

bool GMAX2509::ResetAndInitialize() {
  Trace(__func__);
  return ResetAndRestore(kName, gain_);
}

bool GMAX2509::SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) {
  Trace(__func__);
  const std::uint64_t right = std::uint64_t{x} + width;
  if (width < kNarrowest || right > kFullWidth || width % kColumnBlock != 0 ||
      x % kColumnBlock != 0) {
    printf("value fail,width is %d,left is %d\n", static_cast<int>(width), static_cast<int>(x));
    return false;
  }
  if (read_out_drive_mode_ != kDriveMode00) {
    puts("drive mode error");
    return false;
  }
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  WriteWord(spi_, kFirstRowLow, y + kFirstRowUpright);
  WriteWord(spi_, kRowCountLow, height);
  FollowSize(*fpga, x, width, height, kDriveMode00);
  neighbour::FitImageFormat(kName, roi_width_, roi_height_);
  return true;
}

bool GMAX2509::SetReadoutDriveModeImpl(ReadoutDriveMode mode) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  // Such a product has already halved its rows.
  if (AlwaysSubsampled()) roi_height_ = resolution_.second;

  ReadoutDriveMode pl_drive_mode = kDriveMode00;
  switch (mode) {
    case kDriveMode00:
      spi_.Write(kRowSubsampling, AlwaysSubsampled() ? 1 : 0);
      WriteWord(spi_, kFirstRowLow, kFirstRowUpright);
      WriteWord(spi_, kRowCountLow, roi_height_);
      break;
    case kDriveMode11:
      WriteWord(spi_, kFirstRowLow, kFirstRowUpright);
      WriteWord(spi_, kRowCountLow, roi_height_);
      spi_.Write(kRowSubsampling, 1);
      pl_drive_mode = series_logic_ ? series_logic_->GetSubsamplingPLDriveMode() : kDriveMode11;
      break;
    default:
      puts("SetDriveMode invalid parameter");
      return false;
  }
  FollowSize(*fpga, 0, roi_width_, roi_height_, mode);
  fpga->SetPLDriveMode(pl_drive_mode);
  neighbour::FitImageFormat(kName, roi_width_, roi_height_);
  Pause(kModePause);
  return true;
}

bool GMAX2509::SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) {
  Trace(__func__);
  if (direction > kBothFlip) {
    puts("SetReverseMode invalid parameter");
    return false;
  }
  const bool columns = (direction & kHorizontalFlip) != 0;
  const bool rows = (direction & kVerticalFlip) != 0;
  Update(spi_, kFlipColumns, kHorizontalFlipBit, columns ? kHorizontalFlipBit : 0);
  Update(spi_, kFlipRows, kUprightBit, rows ? 0 : kUprightBit);
  if (direction != kHorizontalFlip) {
    WriteWord(spi_, kFirstRowLow, rows ? kFirstRowFlipped : kFirstRowUpright);
  }
  return true;
}

unsigned int GMAX2509::LineUnits() const { return line_time_ / kClocksPerLineUnit; }

bool GMAX2509::AlwaysSubsampled() const {
  return series_logic_ && series_logic_->GetDefaultCmosReadoutDriveMode() == kDriveMode11;
}

}  // namespace VeltranoSDK
