#include "SeriesLogic/SeriesLogic24.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/fpga/FpgaRegister.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"
#include "Neighbours.h"
#include "SeriesLogic/ExposureDelta.h"
#include "SeriesLogic/LostCallbacks.h"
#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {

namespace {

constexpr int kBaseThreshold = 10;

struct Default {
  unsigned int (FpgaLogic::*set)(unsigned int);
  unsigned int value;
};

// Written in this order. The pipeline's filters start switched off.
constexpr std::array kImageProcessingDefaults{
    Default{&FpgaLogic::SetObOffset, 0},           Default{&FpgaLogic::SetBriThresMax, 0},
    Default{&FpgaLogic::SetBriThresMin, 0},        Default{&FpgaLogic::SetEnhanceEnable, 0},
    Default{&FpgaLogic::SetEnhanceThresMax, 0},    Default{&FpgaLogic::SetEnhanceThresMin, 0},
    Default{&FpgaLogic::SetEnhanceThresNum, 0},    Default{&FpgaLogic::SetEnhanceGain, 0},
    Default{&FpgaLogic::SetMedianFilterEnable, 0}, Default{&FpgaLogic::SetErosionFilterEnable, 0},
    Default{&FpgaLogic::SetErosionThresMax, 10},   Default{&FpgaLogic::SetErosionThresMin, 0},
    Default{&FpgaLogic::SetErosionThresNum, 8},    Default{&FpgaLogic::SetErosionFilterStrategy, 0},
};

// Models whose sensor is mounted upright; all others need the image flipped.
constexpr std::array<std::string_view, 2> kUprightModels{"K3910", "K3920"};

bool ImageIsUpright() {
  const auto name = neighbour::Model().substr(0, 5);
  return std::find(kUprightModels.begin(), kUprightModels.end(), name) != kUprightModels.end();
}

void SetImageProcessingDefaults(FpgaLogic& fpga) {
  fpga.SetBaseThreshold(kBaseThreshold);
  for (const auto& [set, value] : kImageProcessingDefaults) (fpga.*set)(value);
  fpga.SetImgFlippingEnable(ImageIsUpright() ? 0 : 1);
}

// Images are read out in slow lines, laser lines in fast ones. High dynamic range counts in line
// time, so it is set up again.
void FollowCollectMode(FpgaLogic& fpga) {
  const CollectMode mode = fpga.collect_mode();
  if (mode != kCollectImage && mode != kCollectLaserLine) return;
  neighbour::OnSensor<GSPRINT6502BSI>("SeriesLogic24", [&](GSPRINT6502BSI& sensor) {
    sensor.SetLineTime(mode == kCollectLaserLine);
    if (fpga.GetHDREnable() != 0) sensor.SetHdr(true);
  });
}

// This FPGA swaps the strip data modes 1 and 2 of the application.
void SwapStripDataMode(FpgaLogic& fpga) {
  const unsigned int mode = fpga.GetStripDataMode();
  if (mode == 1 || mode == 2) fpga.SetStripDataMode(static_cast<StripSelectMode>(3 - mode));
}

}  // namespace

SeriesLogic24::SeriesLogic24() : SeriesLogic(std::make_shared<FpgaRegisterZynq>(), kSeries24) {
  RegisterNotificationCallback(kCollectModeChanged,
                               [] { neighbour::OnFpga("SeriesLogic24", FollowCollectMode); });
  RegisterNotificationCallback(kExposureConfigured, [] {
    neighbour::OnFpga("SeriesLogic24",
                      [](FpgaLogic& fpga) { fpga.SetExposureNumDelta(kWideExposureDelta); });
  });
  RegisterNotificationCallback(kStripDataModeChanged,
                               [] { neighbour::OnFpga("SeriesLogic24", SwapStripDataMode); });
  RegisterNotificationCallback(
      kStartupFinished, [] { neighbour::OnFpga("SeriesLogic24", SetImageProcessingDefaults); });
}

float SeriesLogic24::GetRisingEdgeThresholdCoeff() { return 0.5F; }

unsigned int SeriesLogic24::GetCallbackLostCount() { return FpgaLostCount(); }

bool SeriesLogic24::ResetCallbackLostCount() { return ResetFpgaLostCount(); }

SeriesLogic24ArmRebuild::SeriesLogic24ArmRebuild() {
  strip_parse_protocol_ = std::make_shared<StripParseProtocol25Arm>();
}

}  // namespace VeltranoSDK
