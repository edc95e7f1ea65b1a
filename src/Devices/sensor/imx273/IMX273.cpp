#include "Devices/sensor/imx273/IMX273.h"

#include <bit>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/imx273/Imx273Tables.h"
#include "Devices/sensor/sony/SonyRegisters.h"
#include "Devices/sensor/sony/SonyTexts.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "tessaline/products.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

using sony::kCropEnable;

constexpr char kName[] = "IMX273";
constexpr unsigned char kBusAddress = 0x36;
constexpr unsigned int kInvalidKind = 0xFFFFFFFD;

constexpr unsigned int kFullWidth = products::kImx273.width;
constexpr unsigned int kFullHeight = products::kImx273.height;
constexpr unsigned int kReducedWidth = kFullWidth / 2;
constexpr unsigned int kReducedHeight = kFullHeight / 2;

constexpr unsigned int kLinesBesideRegion = 42;
constexpr unsigned int kReadoutLatencyLines = 45;

constexpr unsigned int kFullRowTime = 237;
constexpr unsigned int kReducedRowTime = 217;

// Microseconds per line: the step of the exposure.
constexpr float kFullLineTime = std::bit_cast<float>(0x404D2510u);     // 3.205387
constexpr float kReducedLineTime = std::bit_cast<float>(0x403BE7DEu);  // 2.936027

// In microseconds, like all pauses.
constexpr unsigned int kTimingPause = 100;
constexpr unsigned int kFirstFramePause = 100000;

constexpr bool IsKnown(ReadoutDriveMode mode) {
  return mode == kDriveMode00 || mode == kDriveMode11 || mode == kDriveMode22;
}

// The region stays partly set; callers have always got success here.
bool AbandonRegion(const char* text) {
  puts(text);
  return true;
}

}  // namespace

IMX273::IMX273() : SonySensor(kIMX273, {kFullWidth, kFullHeight}, kBusAddress, kInvalidKind) {}

bool IMX273::RegisterInitialize(ReadoutDriveMode mode) {
  Trace(__func__);
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  if (!RunOnce(*fpga, kPowerUp)) return false;

  if (!WriteAll(imx273::kFixedSettings, sony::kInitFailed)) return false;
  if (mode == kDriveMode00) {
    if (!ProgramFullFrame(sony::kInitFailed)) return false;
    fpga->SetTRow(kFullRowTime);
    roi_width_ = kFullWidth;
    roi_height_ = kFullHeight;
  } else {
    if (!WriteAll(imx273::kNoCrop, sony::kInitFailed)) return false;
    if (!WriteAll(imx273::kReducedTimingAtPowerUp, sony::kInitFailed)) return false;
    // A later switch to mode 0x22 uses the reduced row time.
    fpga->SetTRow(mode == kDriveMode22 ? kFullRowTime : kReducedRowTime);
    roi_width_ = kReducedWidth;
    roi_height_ = kReducedHeight;
  }

  fpga->SetExpDelay();
  fpga->SetPLDriveMode(mode);
  fpga->SetImageSize(roi_width_, roi_height_);
  read_out_drive_mode_ = mode;
  if (!Write({sony::kReadoutMode, LowByte(mode)}, sony::kInitFailed)) return false;

  if (!LeaveStandby(*fpga, kPauses, sony::kInitFailed)) return false;
  Pause(kFirstFramePause);
  if (!Write({sony::kTemperatureLatch, 1}, sony::kInitFailed)) return false;
  puts("273 init successful");
  return true;
}

unsigned int IMX273::GetCameraDelay() { return roi_height_ + kReadoutLatencyLines; }

float IMX273::GetExposureTimeUnit() {
  return read_out_drive_mode_ == kDriveMode00 ? kFullLineTime : kReducedLineTime;
}

unsigned int IMX273::TransferMaxFrameValue() {
  switch (read_out_drive_mode()) {
    case kDriveMode00:
    case kDriveMode22:
      return 0x00EE2A11;
    case kDriveMode11:
      return 0x00DA2A11;
    default:
      puts("IMX273::TransferMaxFrameValue() ");
      return 0x2A11;
  }
}

int IMX273::ROIOpen(int mask) {
  const auto enabled = LowByte(i2c_.Read(kCropEnable) | mask);
  return Write({kCropEnable, enabled}, sony::kCropEnableFailed) ? kOk : kBusFailure;
}

int IMX273::ROIClose(int mask) {
  const auto enabled = LowByte(i2c_.Read(kCropEnable) & mask);
  return Write({kCropEnable, enabled}, sony::kCropEnableFailed) ? kOk : kBusFailure;
}

int IMX273::CheckROIInit(int line) {
  const unsigned int enabled = i2c_.Read(kCropEnable);
  // A line that does not exist counts as enabled.
  if (line >= 0 && line < std::ssize(imx273::kCropLines) &&
      (enabled & imx273::kCropLines[line].enable) == 0) {
    puts("this line not init ");
    return 1;
  }
  puts("this line init ");
  return 0;
}

int IMX273::SetCropLine(unsigned int close, unsigned int line, unsigned int value) {
  if (read_out_drive_mode_ != kDriveMode00 && read_out_drive_mode_ != kDriveMode11) {
    puts("drive mode error");
    return kWrongDriveMode;
  }
  if (line >= imx273::kCropLines.size() || close > 1) {
    puts("SetCropLine line invalid parameter");
    return kInvalidParameter;
  }
  const auto& [pair, enable] = imx273::kCropLines[line];
  if (close == 1) {
    if (ROIClose(~enable & 0x0F) == kOk) return kOk;
    puts("line close Abnormal communication");
    return kBusFailure;
  }
  if (ROIOpen(enable) != kOk) {
    puts("line init Abnormal communication");
    return kBusFailure;
  }
  return WritePair(pair, value, sony::kCropLineFailed) ? kOk : kBusFailure;
}

int IMX273::GetCropLine(int line) {
  if (line < 0 || line >= std::ssize(imx273::kCropLines)) {
    puts("GetCropLine line invalid parameter");
    return kWrongDriveMode;
  }
  if (CheckROIInit(line) != 0) {
    puts("line is not init");
    return kBusFailure;
  }
  return ReadPair(imx273::kCropLines[line].pair);
}

int IMX273::SetCropSize(int index, int value) {
  if (index < 0 || index >= std::ssize(imx273::kCropSizes)) {
    puts("SetCropSize invalid parameter");
    return kInvalidParameter;
  }
  const bool written =
      WritePair(imx273::kCropSizes[index], static_cast<unsigned int>(value), sony::kCropSizeFailed);
  return written ? kOk : kBusFailure;
}

int IMX273::GetCropSize(int index) {
  if (index < 0 || index >= std::ssize(imx273::kCropSizes)) {
    puts("GetCropSize invalid parameter");
    return kInvalidParameter;
  }
  return ReadPair(imx273::kCropSizes[index]);
}

bool IMX273::SetROIImpl(unsigned int x, unsigned int y, unsigned int width, unsigned int height) {
  Trace(__func__);
  const ReadoutDriveMode mode = read_out_drive_mode_;
  if (mode != kDriveMode00 && mode != kDriveMode11) {
    puts("drive mode error");
    return false;
  }
  puts("entern setroi!");

  const std::uint64_t right = std::uint64_t{x} + width;
  const std::uint64_t bottom = std::uint64_t{y} + height;
  if (right > (mode == kDriveMode00 ? kFullWidth : kReducedWidth)) {
    printf("IMX273::SetROIImpl error! left:%d, width:%d\n", static_cast<int>(x),
           static_cast<int>(width));
    return false;
  }
  if (bottom > (mode == kDriveMode00 ? kFullHeight : kReducedHeight)) {
    printf("IMX273::SetROIImpl error! top:%d, height:%d\n", static_cast<int>(y),
           static_cast<int>(height));
    return false;
  }

  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;
  return height != 0 ? OpenRegion(*fpga, x, y, width, height) : CloseRegion(*fpga, width);
}

bool IMX273::OpenRegion(FpgaLogic& fpga, unsigned int x, unsigned int y, unsigned int width,
                        unsigned int height) {
  constexpr const char* kLineFailed = "SetCropLine invalid parameter";
  constexpr const char* kSizeFailed = "SetCropSize invalid parameter";
  if (SetCropLine(0, 0, x) != kOk) return AbandonRegion(kLineFailed);
  if (SetCropSize(0, static_cast<int>(width)) != kOk) return AbandonRegion(kSizeFailed);
  if (SetCropLine(0, 1, y) != kOk) return AbandonRegion(kLineFailed);
  if (SetCropSize(1, static_cast<int>(height)) != kOk) return AbandonRegion(kSizeFailed);

  const unsigned int lines = height + kLinesBesideRegion;
  if (!Write({sony::kFrameLinesLow, LowByte(lines)}, sony::kDriveModeFailed)) return false;
  if (!Write({sony::kFrameLinesHigh, HighByte(lines)}, sony::kDriveModeFailed)) return false;
  FollowRegion(fpga, width, height);
  puts("OpenROI1 successful !");
  return true;
}

bool IMX273::CloseRegion(FpgaLogic& fpga, unsigned int width) {
  for (const unsigned int line : {0u, 1u}) {
    if (SetCropLine(1, line, 0) != kOk) return AbandonRegion("SetCropLine invalid parameter");
  }
  if (!WriteAll(imx273::kFullFrameLineCount, sony::kDriveModeFailed)) return false;
  FollowRegion(fpga, width, 0);
  return true;
}

void IMX273::FollowRegion(FpgaLogic& fpga, unsigned int width, unsigned int height) {
  fpga.SetImageSize(width, height);
  fpga.SetExpDelay();
  neighbour::FitImageFormat(kName, roi_width_, roi_height_);
}

bool IMX273::SetReadoutDriveModeImpl(ReadoutDriveMode mode) {
  Trace(__func__);
  if (!IsKnown(mode)) {
    puts("SetDriveMode invalid parameter");
    return false;
  }
  const auto fpga = neighbour::Fpga(kName);
  if (!fpga) return false;

  fpga->SetCmosTimingControl(kOff, kOn);
  Pause(kTimingPause);
  if (!EnterStandby(sony::kEnterStandbyFailed)) return false;
  if (mode == kDriveMode00) {
    if (!Write({sony::kReadoutMode, LowByte(mode)}, sony::kDriveModeFailed)) return false;
    if (!ProgramFullFrame(sony::kDriveModeFailed)) return false;
  } else {
    if (!ProgramReduced(mode)) return false;
  }
  if (!LeaveStandby(*fpga, kPauses, sony::kLeaveStandbyFailed)) return false;

  if (mode == kDriveMode22) {
    roi_width_ = kReducedWidth;
    roi_height_ = kReducedHeight;
  }
  fpga->SetTRow(mode == kDriveMode00 ? kFullRowTime : kReducedRowTime);
  fpga->SetImageSize(roi_width_, roi_height_);
  fpga->SetExpDelay();
  fpga->SetPLDriveMode(mode);
  neighbour::FitImageFormat(kName, roi_width_, roi_height_);
  Pause(kFirstFramePause);
  return true;
}

bool IMX273::ProgramFullFrame(const char* failure) {
  if (SetCropLine(0, 0, 0) != kOk) {
    puts("init error SetCropLine 1");
    return false;
  }
  return SetCropSize(0, kFullWidth) == kOk && SetCropLine(0, 1, 0) == kOk &&
         SetCropSize(1, kFullHeight) == kOk && WriteAll(imx273::kFullFrameTiming, failure);
}

bool IMX273::ProgramReduced(ReadoutDriveMode mode) {
  return WriteAll(imx273::kNoCrop, sony::kDriveModeFailed) &&
         Write({sony::kReadoutMode, LowByte(mode)}, sony::kDriveModeFailed) &&
         WriteAll(imx273::kReducedTiming, sony::kDriveModeFailed);
}

bool IMX273::WritePair(const imx273::CropPair& pair, unsigned int value, const char* failure) {
  if (!Write({pair.low, LowByte(value)}, failure)) return false;
  const unsigned int high = HighByte(value) & pair.high_bits;
  const auto word = LowByte(Replaced(i2c_.Read(pair.high), pair.high_bits, high));
  return Write(RegisterWrite{pair.high_written, word}.NamedAs(pair.high), failure);
}

int IMX273::ReadPair(const imx273::CropPair& pair) {
  const unsigned int low = i2c_.Read(pair.low);
  const unsigned int high = i2c_.Read(pair.high) & pair.high_bits;
  return WordOf(high, low);
}

}  // namespace VeltranoSDK
