#include "Devices/sensor/imx252/IMX252.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/imx252/Imx252Tables.h"
#include "Devices/sensor/sony/SonyRegisters.h"
#include "Devices/sensor/sony/SonyTexts.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "sensor_tables/Imx252FixedSettings.h"
#include "tessaline/products.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr char kName[] = "IMX252";
constexpr unsigned char kBusAddress = 0x10;
constexpr unsigned int kInvalidKind = 0xFFFFFFFE;

constexpr unsigned int kFullWidth = products::kImx252.width;
constexpr unsigned int kFullHeight = products::kImx252.height;

// The region that the product uses, and the margin around it.
constexpr unsigned int kLeft = 8;
constexpr unsigned int kTop = 4;
constexpr unsigned int kUsedWidth = 2048;
constexpr unsigned int kUsedHeight = 1536;

constexpr unsigned int kLinesBesideRegion = 38;
constexpr unsigned int kReadoutLatencyLines = 41;

// Microseconds per line: the step of the exposure.
constexpr float kFullLineTime = std::bit_cast<float>(0x40859A4Au);     // 4.175084
constexpr float kReducedLineTime = std::bit_cast<float>(0x403BE7DEu);  // 2.936027

constexpr std::uint16_t kPowerUpControl = 0x3001;
constexpr std::uint8_t kPowerUpValue = 0xC0;
constexpr std::uint16_t kMasterStop = 0x300A;
constexpr std::uint8_t kCropBothLines = 0x03;
constexpr std::uint8_t kRowsReduced = 0x02;

// In microseconds, like all pauses.
constexpr unsigned int kStartPause = 1000;
constexpr unsigned int kSwitchPause = 100;
constexpr unsigned int kSwitchStep = 1000;
constexpr unsigned int kFirstFramePause = 100000;

}  // namespace

IMX252::IMX252() : SonySensor(kIMX252, {kFullWidth, kFullHeight}, kBusAddress, kInvalidKind) {}

bool IMX252::RegisterInitialize(ReadoutDriveMode mode) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  if (!RunOnce(*fpga, kPowerUp)) return false;
  if (!Write({kPowerUpControl, kPowerUpValue}, sony::kInitFailed)) return false;
  if (ch16_mode_ == 0) Set8ChReg();
  if (!WriteFixedSettings()) return false;

  const auto start = std::find_if(imx252::kStarts.begin(), imx252::kStarts.end(),
                                  [mode](const imx252::Start& row) { return row.mode == mode; });
  if (start == imx252::kStarts.end()) {
    puts("252 init drive_mode error!");
    return false;
  }
  const imx252::LineTiming& line = Line(start->line);
  if (!WriteAll(start->frame, sony::kInitFailed)) return false;
  if (!WriteLine(line)) return false;
  if (!Write({sony::kReadoutMode, start->readout_mode}, sony::kInitFailed)) return false;
  fpga->SetTRow(line.row_time);
  roi_width_ = start->width;
  roi_height_ = start->height;

  fpga->SetExpDelay();
  fpga->SetPLDriveMode(mode);
  fpga->SetImageSize(roi_width_, roi_height_);
  read_out_drive_mode_ = mode;

  if (!Write({sony::kStandby, 0}, sony::kInitFailed)) return false;
  Pause(kStartPause);
  StartTimingWhenReady(*fpga, kPowerUp.wake_up);
  Pause(kFirstFramePause);
  if (!Write({sony::kTemperatureLatch, 1}, sony::kInitFailed)) return false;
  puts("252 init successful");
  return true;
}

bool IMX252::WriteFixedSettings() {
  return std::all_of(imx252::kFixedSettings.begin(), imx252::kFixedSettings.end(),
                     [this](const imx252::Setting& setting) {
                       return Write({setting.address, setting.value}, sony::kInitFailed);
                     });
}

void IMX252::Set8ChReg() {
  Trace(__func__);
  for (const RegisterWrite& write : imx252::kOutputOver8Channels) Write(write, sony::kInitFailed);
}

const imx252::LineTiming& IMX252::Line(const imx252::LineTiming& over_8_channels) const {
  return Has16Channels() ? imx252::k16ChannelLine : over_8_channels;
}

bool IMX252::WriteLine(const imx252::LineTiming& line) {
  return Write(line.low, sony::kInitFailed) && Write(line.high, sony::kInitFailed);
}

unsigned int IMX252::GetCameraDelay() { return roi_height_ + kReadoutLatencyLines; }

float IMX252::GetExposureTimeUnit() {
  return read_out_drive_mode_ == kDriveMode11 ? kReducedLineTime : kFullLineTime;
}

unsigned int IMX252::TransferMaxFrameValue() {
  switch (read_out_drive_mode()) {
    case kDriveMode00:
    case kDriveMode22:
      return Has16Channels() ? 0x00D9260D : 0x0136260D;
    case kDriveMode11:
      return Has16Channels() ? 0x00D9260D : 0x00DA260D;
    default:
      puts("IMX252::TransferMaxFrameValue()");
      return 0xFFFFFFFF;
  }
}

bool IMX252::SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  if (ch16_mode_ == 0 && (x < kLeft || y < kTop)) {
    printf("IMX252::SetROIImpl error left:%d, top:%d\n", static_cast<int>(x), static_cast<int>(y));
  }
  puts("entern setroi");

  const auto low = [](std::uint16_t address, unsigned int value) {
    return RegisterWrite{address, LowByte(value)};
  };
  const auto high = [](std::uint16_t address, unsigned int value, std::uint8_t mask) {
    return RegisterWrite{address, LowByte(HighByte(value) & mask)}.Only(mask);
  };
  const unsigned int lines = height + kLinesBesideRegion;
  const std::array region{
      low(0x3310, x),
      high(0x3311, x, 0x1F),
      low(0x3312, y),
      high(0x3313, y, 0x0F),
      low(0x3314, width),
      high(0x3315, width, 0x1F),
      low(0x3316, height),
      high(0x3317, height, 0x0F),
      low(sony::kFrameLinesLow, lines),
      low(sony::kFrameLinesHigh, lines >> 8),
  };
  if (!WriteAll(region, sony::kRegionFailed)) return false;

  if (strip_width_follow_) {
    fpga->SetStripSelectorImgWidth(LowHalf(roi_width_));
  }
  fpga->SetImageSize(width, height);
  fpga->SetExpDelay();
  neighbour::FitImageFormat(kName, roi_width_, roi_height_);
  Pause(kFirstFramePause);
  return true;
}

bool IMX252::SetReadoutDriveModeImpl(ReadoutDriveMode mode) {
  Trace(__func__);
  const bool full = mode == kDriveMode00;
  if (!full && mode != kDriveMode11 && mode != kDriveMode22) {
    puts("SetDriveMode invalid parameter");
    return false;
  }
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  Pause(kSwitchPause);
  fpga->SetCmosTimingControl(kOff, kOn);
  Pause(kSwitchStep);
  if (!(full ? SwitchToFullReadout() : SwitchToReducedReadout())) return false;
  if (!LeaveStandby(*fpga, kSwitchPauses, sony::kLeaveStandbyFailed)) return false;
  Pause(kSwitchStep);
  fpga->SetTRow(Line(imx252::kFullLine).row_time);
  fpga->SetPLDriveMode(full ? kDriveMode00 : kDriveMode22);
  Pause(kFirstFramePause);
  return true;
}

bool IMX252::SwitchToFullReadout() {
  return EnterStandby(sony::kEnterStandbyFailed) &&
         Write({sony::kReadoutMode, 0}, sony::kDriveModeFailed) &&
         Write({sony::kCropEnable, kCropBothLines}, sony::kInitFailed) &&
         SetROI(kLeft, kTop, kUsedWidth, kUsedHeight) && WriteLine(Line(imx252::kFullLine));
}

bool IMX252::SwitchToReducedReadout() {
  if (!Write({kMasterStop, 1}, sony::kStopMasterFailed)) return false;
  Pause(kSwitchStep);
  return EnterStandby(sony::kEnterStandbyFailed) &&
         Write({sony::kCropEnable, kCropBothLines}, sony::kInitFailed) &&
         SetROI(kLeft, kTop, kUsedWidth, kUsedHeight / 2) && WriteLine(Line(imx252::kFullLine)) &&
         Write({sony::kReadoutMode, kRowsReduced}, sony::kReducedReadoutFailed);
}

}  // namespace VeltranoSDK
