// The trace lines of FpgaLogic. Nearly every method logs its name, followed by the names of the
// methods that it calls.
#include <array>

#include "Devices/fpga/FpgaLogicFixture.h"
#include "support/LoggedLines.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;

using Names = std::vector<std::string>;

struct Traced {
  const char* name;
  void (*call)(FpgaLogic&);
  Names asked = {};  // the methods that it calls
};

const std::vector<Traced> kTraced{
    // Trigger, encoder, synchronisation
    {"SetTriMode", [](auto& f) { f.SetTriMode(kTimerTrigger); }},
    {"GetTriMode", [](auto& f) { f.GetTriMode(); }},
    {"ControlSoftwareTrigger", [](auto& f) { f.ControlSoftwareTrigger(); }},
    {"SetTriSpacing", [](auto& f) { f.SetTriSpacing(4000); }, {"GetTriMode"}},
    {"GetTriSpacing", [](auto& f) { f.GetTriSpacing(); }},
    {"SetDoorControlEn", [](auto& f) { f.SetDoorControlEn(kOn); }, {"GetTriMode"}},
    {"GetDoorControlEn", [](auto& f) { f.GetDoorControlEn(); }, {"GetTriMode"}},
    {"SetDelayEn", [](auto& f) { f.SetDelayEn(kOn); }},
    {"GetDelayEn", [](auto& f) { f.GetDelayEn(); }},
    {"SetTriDelayStandard", [](auto& f) { f.SetTriDelayStandard(kDelayInCounts); }},
    {"GetTriDelayStandard", [](auto& f) { f.GetTriDelayStandard(); }},
    {"SetTriDelay", [](auto& f) { f.SetTriDelay(1); }, {"GetTriDelayStandard"}},
    {"GetTriDelay", [](auto& f) { f.GetTriDelay(); }, {"GetTriDelayStandard"}},
    {"SetGlobalControl", [](auto& f) { f.SetGlobalControl(kOff); }},
    {"GetGlobalControl", [](auto& f) { f.GetGlobalControl(); }},
    {"SetReverseMode", [](auto& f) { f.SetReverseMode(kReverseMode0); }},
    {"GetReverseMode", [](auto& f) { f.GetReverseMode(); }},
    {"SetReverseDistance", [](auto& f) { f.SetReverseDistance(1); }, {"GetReverseMode"}},
    {"GetReverseDistance", [](auto& f) { f.GetReverseDistance(); }, {"GetReverseMode"}},
    {"GetEncoderFreq", [](auto& f) { f.GetEncoderFreq(); }},
    {"GetEncoderCounter", [](auto& f) { f.GetEncoderCounter(); }},
    {"GetTimerCounter", [](auto& f) { f.GetTimerCounter(); }},
    {"GetXtrigStart", [](auto& f) { f.GetXtrigStart(); }},
    {"GetXtrigLostSta", [](auto& f) { f.GetXtrigLostSta(); }},
    {"TriggerLostReset", [](auto& f) { f.TriggerLostReset(); }},
    {"GetExternalTriggerLevel", [](auto& f) { f.GetExternalTriggerLevel(); }},
    {"ExternalTriggerIrqCtrl", [](auto& f) { f.ExternalTriggerIrqCtrl(kOff); }},
    {"SetExtinWidth", [](auto& f) { f.SetExtinWidth(10); }},
    {"GetExtinWidth", [](auto& f) { f.GetExtinWidth(); }},
    {"SetMasterState", [](auto& f) { f.SetMasterState(kOff); }},
    {"GetMasterState", [](auto& f) { f.GetMasterState(); }},
    {"SetMasterConctrolID", [](auto& f) { f.SetMasterConctrolID(1); }},
    {"GetMasterConctrolID", [](auto& f) { f.GetMasterConctrolID(); }},
    {"IntSignalOper", [](auto& f) { f.IntSignalOper(); }},

    // Digital outputs, polarities, DA output
    {"SetOutWidth", [](auto& f) { f.SetOutWidth(kDigitalOutput1, 1); }},
    {"GetOutWidth", [](auto& f) { f.GetOutWidth(kDigitalOutput1); }},
    {"SetOutEvent", [](auto& f) { f.SetOutEvent(kDigitalOutput1, kOutputEvent1); }},
    {"GetOutEvent", [](auto& f) { f.GetOutEvent(kDigitalOutput1); }},
    {"SetOutMode", [](auto& f) { f.SetOutMode(kDigitalOutput1, kOutputMode1); }},
    {"GetOutMode", [](auto& f) { f.GetOutMode(kDigitalOutput1); }},
    {"SetOutDelayEn", [](auto& f) { f.SetOutDelayEn(kDigitalOutput1, kOn); }, {"GetOutMode"}},
    {"GetOutDelayEn", [](auto& f) { f.GetOutDelayEn(kDigitalOutput1); }, {"GetOutMode"}},
    {"DigitalOutputSWTrigger", [](auto& f) { f.DigitalOutputSWTrigger(kDigitalOutput1); }},
    {"WRFifo", [](auto& f) { f.WRFifo(kDigitalOutput1); }},
    {"SetDigitalOutputEnState", [](auto& f) { f.SetDigitalOutputEnState(kDigitalOutput1, kOn); }},
    {"GetDigitalOutputEnState", [](auto& f) { f.GetDigitalOutputEnState(kDigitalOutput1); }},
    {"SetExtTriDelayStandard",
     [](auto& f) { f.SetExtTriDelayStandard(kDaOutput, kDelayInCounts); }},
    {"GetExtTriDelayStandard", [](auto& f) { f.GetExtTriDelayStandard(kDaOutput); }},
    {"SetOutDelay", [](auto& f) { f.SetOutDelay(kDigitalOutput1, 1); }, {"GetExtTriDelayStandard"}},
    {"GetOutDelay", [](auto& f) { f.GetOutDelay(kDigitalOutput1); }, {"GetExtTriDelayStandard"}},
    {"GetOutLostSta", [](auto& f) { f.GetOutLostSta(kDigitalOutput1); }},
    {"SetOutPolarity", [](auto& f) { f.SetOutPolarity(kDigitalOutput1, 1); }},
    {"SetCamTriPolarity", [](auto& f) { f.SetCamTriPolarity(1); }},
    {"SetCamResPolarity", [](auto& f) { f.SetCamResPolarity(1); }},
    {"SetLasTriPolarity", [](auto& f) { f.SetLasTriPolarity(1); }},
    {"SetExtTriPolarity", [](auto& f) { f.SetExtTriPolarity(1); }},
    {"GetPolarity", [](auto& f) { f.GetPolarity(); }},
    {"DaIrqCtrl", [](auto& f) { f.DaIrqCtrl(kOff); }},
    {"SetDAOutputDelay", [](auto& f) { f.SetDAOutputDelay(1); }, {"GetExtTriDelayStandard"}},
    {"GetDAOutputDelay", [](auto& f) { f.GetDAOutputDelay(); }, {"GetExtTriDelayStandard"}},
    {"GetCommVerifyErrorSta", [](auto& f) { f.GetCommVerifyErrorSta(); }},

    // Image sensor, laser, exposure
    {"SetTRow", [](auto& f) { f.SetTRow(1); }},
    {"SetTGes", [](auto& f) { f.SetTGes(1); }},
    {"SetCmosSensorWorkMode", [](auto& f) { f.SetCmosSensorWorkMode(CameraSensorMode{}); }},
    {"SetCmosTimingControl", [](auto& f) { f.SetCmosTimingControl(kOff, kOff); }},
    {"CameraReset", [](auto& f) { f.CameraReset(); }},
    {"GetCmosMaxDrive", [](auto& f) { f.GetCmosMaxDrive(); }},
    {"SetLaserMode", [](auto& f) { f.SetLaserMode(kLaserMode1); }},
    {"GetLaserMode", [](auto& f) { f.GetLaserMode(); }},
    {"SetLaserOffsetTime", [](auto& f) { f.SetLaserOffsetTime(1); }},
    {"SetExpTime", [](auto& f) { f.SetExpTime(kExposure1, 100, 1.0f); }},
    {"GetExpTime", [](auto& f) { f.GetExpTime(kExposure1); }},
    {"SetExpDelay", [](auto& f) { f.SetExpDelay(); }},
    {"GetExpDelay", [](auto& f) { f.GetExpDelay(); }},
    {"SetExposureNum", [](auto& f) { f.SetExposureNum(1); }},
    {"SetExposureNumDelta", [](auto& f) { f.SetExposureNumDelta(1); }},
    {"SetExpNum", [](auto& f) { f.SetExpNum(1); }},
    {"GetExpNum", [](auto& f) { f.GetExpNum(); }},
    {"SetHDREnable", [](auto& f) { f.SetHDREnable(1); }},
    {"GetHDREnable", [](auto& f) { f.GetHDREnable(); }},
    {"SetHDRParam", [](auto& f) { f.SetHDRParam(0.5, 0.25, 0); }},

    // Data path
    {"EnableCollectModeSignal", [](auto& f) { f.EnableCollectModeSignal(); }},
    {"SetCollectMode", [](auto& f) { f.SetCollectMode(kCollectImage); }},
    {"SetStripDataMode", [](auto& f) { f.SetStripDataMode(StripSelectMode{}); }},
    {"GetStripDataMode", [](auto& f) { f.GetStripDataMode(); }},
    {"ResetFrameID", [](auto& f) { f.ResetFrameID(); }},
    {"GetCallbackLostNum", [](auto& f) { f.GetCallbackLostNum(); }},
    {"ResetCallbackLostNum", [](auto& f) { f.ResetCallbackLostNum(); }},
    {"GetStripDelay", [](auto& f) { f.GetStripDelay(); }},
    {"GetFPGASeries", [](auto& f) { f.GetFPGASeries(); }},
    {"GetFPGAVersion", [](auto& f) { f.GetFPGAVersion(); }},

    // Image geometry
    {"SetImageSize", [](auto& f) { f.SetImageSize(1, 1); }},
    {"GetImageWidth", [](auto& f) { f.GetImageWidth(); }},
    {"GetImageHeight", [](auto& f) { f.GetImageHeight(); }},
    {"SetImageReadoutParam", [](auto& f) { f.SetImageReadoutParam(1, 1, kDriveMode00); }},
    {"SetPLDriveMode", [](auto& f) { f.SetPLDriveMode(kDriveMode00); }},
    {"SetRoiOffset", [](auto& f) { f.SetRoiOffset(1, 1); }},
    {"SetMeasuringRange", [](auto& f) { f.SetMeasuringRange(1, 1); }},

    // Laser-line extraction and reconstruction
    {"SetRisThresholdValue", [](auto& f) { f.SetRisThresholdValue(1); }},
    {"GetRisThresholdValue", [](auto& f) { f.GetRisThresholdValue(); }},
    {"SetStripWidthMin", [](auto& f) { f.SetStripWidthMin(1); }},
    {"GetStripWidthMin", [](auto& f) { f.GetStripWidthMin(); }},
    {"SetStripWidthMax", [](auto& f) { f.SetStripWidthMax(1); }},
    {"GetStripWidthMax", [](auto& f) { f.GetStripWidthMax(); }},
    {"SetStripRebuildValue",
     [](auto& f) {
       std::array<int, 21> values{};
       f.SetStripRebuildValue(values.data());
     }},
    {"SetSampleLightLineParam", [](auto& f) { f.SetSampleLightLineParam(1, 2, 3, 4, 5); }},
    {"SetStripWriteMemMode", [](auto& f) { f.SetStripWriteMemMode(SampleStrategy{}); }},
    {"SetStripSelectorImgWidth", [](auto& f) { f.SetStripSelectorImgWidth(1); }},
    {"SetImageFilterSize", [](auto& f) { f.SetImageFilterSize(1, 1); }},
    {"SetImageFilterThrs", [](auto& f) { f.SetImageFilterThrs(1); }},
    {"SetBrFlag", [](auto& f) { f.SetBrFlag(1); }},
    {"SetContinuousFlag", [](auto& f) { f.SetContinuousFlag(1); }},
};

const std::vector<Traced> kUntraced{
    {"SetBaseThreshold", [](auto& f) { f.SetBaseThreshold(1); }},
    {"SetCollectMode2", [](auto& f) { f.SetCollectMode2(kCollectImage); }},
    {"SetISPHeight", [](auto& f) { f.SetISPHeight(1); }},
    {"SetBinEnable", [](auto& f) { f.SetBinEnable(1); }},
    {"SetHotpixelEnable", [](auto& f) { f.SetHotpixelEnable(1); }},
    {"SetImgFlippingEnable", [](auto& f) { f.SetImgFlippingEnable(1); }},
    {"SetObOffset", [](auto& f) { f.SetObOffset(1); }},
    {"SetBriThresMax", [](auto& f) { f.SetBriThresMax(1); }},
    {"SetBriThresMin", [](auto& f) { f.SetBriThresMin(1); }},
    {"SetEnhanceEnable", [](auto& f) { f.SetEnhanceEnable(1); }},
    {"SetEnhanceThresMax", [](auto& f) { f.SetEnhanceThresMax(1); }},
    {"SetEnhanceThresMin", [](auto& f) { f.SetEnhanceThresMin(1); }},
    {"SetEnhanceThresNum", [](auto& f) { f.SetEnhanceThresNum(1); }},
    {"SetEnhanceGain", [](auto& f) { f.SetEnhanceGain(1); }},
    {"SetMedianFilterEnable", [](auto& f) { f.SetMedianFilterEnable(1); }},
    {"SetErosionFilterEnable", [](auto& f) { f.SetErosionFilterEnable(1); }},
    {"SetErosionThresMax", [](auto& f) { f.SetErosionThresMax(1); }},
    {"SetErosionThresMin", [](auto& f) { f.SetErosionThresMin(1); }},
    {"SetErosionThresNum", [](auto& f) { f.SetErosionThresNum(1); }},
    {"SetErosionFilterStrategy", [](auto& f) { f.SetErosionFilterStrategy(1); }},
    {"SetFpgaContinuous", [](auto& f) { f.SetFpgaContinuous(1); }},
};

class Tracing : public ZynqFpga {
 protected:
  // The lines that a call logs, without those of the register access: "TRACE SetTriMode".
  static Names Lines(FpgaLogic& logic, const Traced& method) {
    const LoggedLines lines(TESSALINE_LOG_TRACE);
    method.call(logic);
    Names kept;
    for (const std::string& line : lines.Take()) {
      const std::size_t level_end = line.find(' ');
      const std::string text = line.substr(line.find(": ") + 2);
      if (!text.starts_with("fpga_")) kept.push_back(line.substr(0, level_end + 1) + text);
    }
    return kept;
  }

  static Names Expected(const Traced& method) {
    Names lines{std::string("TRACE ") + method.name};
    for (const std::string& name : method.asked) lines.push_back("TRACE " + name);
    return lines;
  }
};

TEST_F(Tracing, AMethodLogsItsName) {
  for (const Traced& method : kTraced) {
    EXPECT_EQ(Lines(logic(), method), Expected(method)) << method.name;
  }
}

TEST_F(Tracing, ImageProcessingAndTwoMoreLogNothing) {
  for (const Traced& method : kUntraced) {
    EXPECT_EQ(Lines(logic(), method), Names{}) << method.name;
  }
}

TEST_F(Tracing, TheFactoryLogsItsName) {
  const LoggedLines lines(TESSALINE_LOG_TRACE);
  FpgaLogicFactory::CreateFpgaLogicBySeries(kSeries21);
  const Names logged = lines.Take();
  ASSERT_FALSE(logged.empty());
  EXPECT_EQ(logged[0], "TRACE Devices/FpgaLogicFactory.cpp: CreateFpgaLogicBySeries");
}

class SplitTimingTracing : public Tracing {
 protected:
  void SetUp() override {
    Tracing::SetUp();
    split_ = FpgaLogicFactory::CreateFpgaLogicBySeries(kSeries23);
  }
  std::shared_ptr<FpgaLogic> split_;
};

TEST_F(SplitTimingTracing, AMethodLogsItsName) {
  const std::vector<Traced> methods{{"SetTRow", [](auto& f) { f.SetTRow(1); }},
                                    {"SetTGes", [](auto& f) { f.SetTGes(1); }}};
  for (const Traced& method : methods) {
    EXPECT_EQ(Lines(*split_, method), Expected(method)) << method.name;
  }
}

}  // namespace
}  // namespace tessaline_test
