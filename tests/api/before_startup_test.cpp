// Calls every exported device function before there is a device. Each must log one ERROR that names
// it, return its failure value, and do nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace {

using tessaline_test::LoggedErrors;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;

bool Failed(int result) { return result == -1; }
bool Failed(unsigned int result) { return result == 0xFFFFFFFF; }
bool Failed(std::uint64_t result) { return result == ~std::uint64_t{0}; }
bool Failed(float result) { return std::isnan(result); }

struct Call {
  const char* name;
  bool (*result_is_right)();  // makes the call
};

void PrintTo(const Call& call, std::ostream* out) { *out << call.name; }

int32_t coefficients[21];

const Call kCalls[] = {
    {"CloseLaser", [] { return Failed(CloseLaser()); }},
    {"DAWrite", [] { return Failed(DAWrite(1)); }},
    {"GetCallbackLostNum", [] { return Failed(GetCallbackLostNum()); }},
    {"GetCmosMaxDrive", [] { return Failed(GetCmosMaxDrive()); }},
    {"GetCollectMode", [] { return Failed(GetCollectMode()); }},
    {"GetCpuTemp", [] { return Failed(GetCpuTemp()); }},
    {"GetDigitalPOTResolution", [] { return Failed(GetDigitalPOTResolution()); }},
    {"GetDoorControlEn", [] { return Failed(GetDoorControlEn()); }},
    {"GetDriveMode", [] { return Failed(GetDriveMode()); }},
    {"GetEncoderCounter", [] { return Failed(GetEncoderCounter()); }},
    {"GetEncoderFreq", [] { return Failed(GetEncoderFreq()); }},
    {"GetExposureNum", [] { return Failed(GetExposureNum()); }},
    {"GetGlobalControl", [] { return Failed(GetGlobalControl()); }},
    {"GetImageHeight", [] { return Failed(GetImageHeight()); }},
    {"GetImageWidth", [] { return Failed(GetImageWidth()); }},
    {"GetMasterConctrolID", [] { return Failed(GetMasterConctrolID()); }},
    {"GetMasterState", [] { return Failed(GetMasterState()); }},
    {"GetOutDelay", [] { return Failed(GetOutDelay(0)); }},
    {"GetOutDelayEn", [] { return Failed(GetOutDelayEn(0)); }},
    {"GetOutEvent", [] { return Failed(GetOutEvent(0)); }},
    {"GetOutMode", [] { return Failed(GetOutMode(0)); }},
    {"GetOutWidth", [] { return Failed(GetOutWidth(0)); }},
    {"GetReverseDistance", [] { return Failed(GetReverseDistance()); }},
    {"GetReverseMode_io", [] { return Failed(GetReverseMode_io()); }},
    {"GetRisThresholdValue", [] { return Failed(GetRisThresholdValue()); }},
    {"GetSensorTemp", [] { return Failed(GetSensorTemp()); }},
    {"GetStripDataMode", [] { return Failed(GetStripDataMode()); }},
    {"GetStripWidthMax", [] { return Failed(GetStripWidthMax()); }},
    {"GetStripWidthMin", [] { return Failed(GetStripWidthMin()); }},
    {"GetTimerCounter", [] { return Failed(GetTimerCounter()); }},
    {"GetTriDelay", [] { return Failed(GetTriDelay()); }},
    {"GetTriDelayStandard", [] { return Failed(GetTriDelayStandard()); }},
    {"GetTriSpacing", [] { return Failed(GetTriSpacing()); }},
    {"GetXtrigLostSta", [] { return Failed(GetXtrigLostSta()); }},
    {"LedControl", [] { return Failed(LedControl(1)); }},
    {"OpenLaser", [] { return Failed(OpenLaser()); }},
    {"OutputSWTrigger", [] { return Failed(OutputSWTrigger(0)); }},
    {"QV4l2Buf", [] { return Failed(QV4l2Buf(0)); }},
    {"RegisterHardwareInit", [] { return Failed(RegisterHardwareInit()); }},
    {"ResetCallbackLostNum", [] { return Failed(ResetCallbackLostNum()); }},
    {"ResetFrameID", [] { return Failed(ResetFrameID()); }},
    {"SetBinEnable", [] { return Failed(SetBinEnable(1)); }},
    {"SetBrFlag", [] { return SetBrFlag(1), true; }},
    {"SetBriThresMax", [] { return Failed(SetBriThresMax(1)); }},
    {"SetBriThresMin", [] { return Failed(SetBriThresMin(1)); }},
    {"SetCmosGain", [] { return Failed(SetCmosGain(1)); }},
    {"SetCollectMode", [] { return Failed(SetCollectMode(1)); }},
    {"SetContinuousFlag", [] { return SetContinuousFlag(1), true; }},
    {"SetDADelayState", [] { return Failed(SetDADelayState(1)); }},
    {"SetDAOutputDelay", [] { return Failed(SetDAOutputDelay(1)); }},
    {"SetDelayEn", [] { return Failed(SetDelayEn(1)); }},
    {"SetDigitalOutputEnState", [] { return Failed(SetDigitalOutputEnState(0, 1)); }},
    {"SetDoorControlEn", [] { return Failed(SetDoorControlEn(1)); }},
    {"SetDriveMode", [] { return Failed(SetDriveMode(0)); }},
    {"SetEnhanceEnable", [] { return Failed(SetEnhanceEnable(1)); }},
    {"SetEnhanceGain", [] { return Failed(SetEnhanceGain(1)); }},
    {"SetEnhanceThresMax", [] { return Failed(SetEnhanceThresMax(1)); }},
    {"SetEnhanceThresMin", [] { return Failed(SetEnhanceThresMin(1)); }},
    {"SetEnhanceThresNum", [] { return Failed(SetEnhanceThresNum(1)); }},
    {"SetErosionFilterEnable", [] { return Failed(SetErosionFilterEnable(1)); }},
    {"SetErosionFilterStrategy", [] { return Failed(SetErosionFilterStrategy(1)); }},
    {"SetErosionThresMax", [] { return Failed(SetErosionThresMax(1)); }},
    {"SetErosionThresMin", [] { return Failed(SetErosionThresMin(1)); }},
    {"SetErosionThresNum", [] { return Failed(SetErosionThresNum(1)); }},
    {"SetExposureNum", [] { return Failed(SetExposureNum(1)); }},
    {"SetExposureTime", [] { return Failed(SetExposureTime(1, 100)); }},
    {"SetExtTriDelayStandard", [] { return Failed(SetExtTriDelayStandard(0, 1)); }},
    {"SetExtTriggerState", [] { return Failed(SetExtTriggerState(1)); }},
    {"SetExternSignalFilter", [] { return Failed(SetExternSignalFilter(1)); }},
    {"SetFpgaContinuous", [] { return SetFpgaContinuous(1), true; }},
    {"SetGlobalControl", [] { return Failed(SetGlobalControl(0)); }},
    {"SetHDRParam", [] { return Failed(SetHDRParam(1, 1)); }},
    {"SetHDRParam24", [] { return SetHDRParam24(0.5, 0.2, 0.1), true; }},
    {"SetHotpixelEnable", [] { return Failed(SetHotpixelEnable(1)); }},
    {"SetLasTriPolarity", [] { return Failed(SetLasTriPolarity(1)); }},
    {"SetLaserMode", [] { return Failed(SetLaserMode(1)); }},
    {"SetLaserPower", [] { return Failed(SetLaserPower(50)); }},
    {"SetMasterConctrolID", [] { return Failed(SetMasterConctrolID(1)); }},
    {"SetMasterState", [] { return Failed(SetMasterState(1)); }},
    {"SetMeasuringRange", [] { return Failed(SetMeasuringRange(1, 2)); }},
    {"SetMedianFilterEnable", [] { return Failed(SetMedianFilterEnable(1)); }},
    {"SetObOffset", [] { return Failed(SetObOffset(1)); }},
    {"SetOutDelay", [] { return Failed(SetOutDelay(0, 1)); }},
    {"SetOutDelayEn", [] { return Failed(SetOutDelayEn(0, 1)); }},
    {"SetOutEvent", [] { return Failed(SetOutEvent(0, 1)); }},
    {"SetOutMode", [] { return Failed(SetOutMode(0, 1)); }},
    {"SetOutPolarity", [] { return Failed(SetOutPolarity(0, 1)); }},
    {"SetOutWidth", [] { return Failed(SetOutWidth(0, 1)); }},
    {"SetROI1", [] { return Failed(SetROI1(0, 0, 64, 64)); }},
    {"SetReverseDistance", [] { return Failed(SetReverseDistance(1)); }},
    {"SetReverseMode", [] { return Failed(SetReverseMode(1)); }},
    {"SetReverseMode_io", [] { return Failed(SetReverseMode_io(1)); }},
    {"SetRisThresholdValue", [] { return Failed(SetRisThresholdValue(1)); }},
    {"SetRoiOffset", [] { return Failed(SetRoiOffset(1, 1)); }},
    {"SetSampleLightLineParam", [] { return Failed(SetSampleLightLineParam(1, 2, 3, 4, 5)); }},
    {"SetSensingMode", [] { return Failed(SetSensingMode(1)); }},
    {"SetStripDataMode", [] { return Failed(SetStripDataMode(1)); }},
    {"SetStripRebuildValue", [] { return Failed(SetStripRebuildValue(coefficients)); }},
    {"SetStripWidthMax", [] { return Failed(SetStripWidthMax(1)); }},
    {"SetStripWidthMin", [] { return Failed(SetStripWidthMin(1)); }},
    {"SetStripWriteMemMode", [] { return Failed(SetStripWriteMemMode(1)); }},
    {"SetTriDelay", [] { return Failed(SetTriDelay(1)); }},
    {"SetTriDelayStandard", [] { return Failed(SetTriDelayStandard(1)); }},
    {"SetTriMode", [] { return Failed(SetTriMode(1)); }},
    {"SetTriSpacing", [] { return Failed(SetTriSpacing(1)); }},
    {"TransferMaxFrameValue", [] { return Failed(TransferMaxFrameValue()); }},
    {"TricontrolSWTrigger", [] { return Failed(TricontrolSWTrigger()); }},
    {"TriggerLostReset", [] { return Failed(TriggerLostReset()); }},
    {"WRFifo", [] { return Failed(WRFifo(0)); }},
};

class BeforeStartup : public ::testing::TestWithParam<Call> {};

TEST_P(BeforeStartup, IsAnErrorThatNamesTheFunction) {
  const LoggedErrors errors;
  CaptureStdout();
  EXPECT_TRUE(GetParam().result_is_right());
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_THAT(errors.lines(),
              ElementsAre(MatchesRegex(std::string(".*\\.cpp: ") + GetParam().name + ": .+")));
}

// The functions that work, or are ignored, without a device.
const Call kWithoutDevice[] = {
    {"GetLibVersion", [] { return GetLibVersion("K3610") == 41915; }},
    {"GetStripReleaseNum", [] { return GetStripReleaseNum() == 0; }},
    {"RegisterEventHandler", [] { return RegisterEventHandler(7, nullptr), true; }},
    {"ResetStripReleaseNum", [] { return ResetStripReleaseNum() == 0; }},
    {"Temp18b20Read", [] { return Temp18b20Read() == 0; }},
    {"TessalineGetCaptureStatistics",
     [] {
       tessaline_capture_statistics statistics{};
       statistics.dequeued = 1;
       return TessalineGetCaptureStatistics(TESSALINE_STREAM_IMAGES, &statistics) == 0 &&
              statistics.dequeued == 0;
     }},
    {"TessalineResetCaptureStatistics",
     [] { return TessalineResetCaptureStatistics(TESSALINE_STREAM_STRIPS) == 0; }},
};

std::vector<std::string> traces;

// Keeps every log line of an exported function as "LEVEL text".
void KeepTrace(log_Event* ev) {
  if (ev->level >= TESSALINE_LOG_ERROR || !std::string(ev->file).starts_with("VeltranoApi")) return;
  char text[128];
  vsnprintf(text, sizeof text, ev->fmt, ev->ap);
  traces.push_back(std::string(log_level_string(ev->level)) + ' ' + text);
}

class Traced : public ::testing::TestWithParam<Call> {};

TEST_P(Traced, LeavesItsNameOnceAtLevelTrace) {
  log_set_quiet(true);
  ASSERT_EQ(log_add_callback(KeepTrace, nullptr, TESSALINE_LOG_TRACE), 0);
  EXPECT_TRUE(GetParam().result_is_right());
  EXPECT_THAT(traces, ElementsAre(std::string("TRACE ") + GetParam().name));
}

INSTANTIATE_TEST_SUITE_P(Refused, Traced, ::testing::ValuesIn(kCalls),
                         [](const auto& row) { return std::string(row.param.name); });
INSTANTIATE_TEST_SUITE_P(Done, Traced, ::testing::ValuesIn(kWithoutDevice),
                         [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(Api, BeforeStartup, ::testing::ValuesIn(kCalls),
                         [](const auto& row) { return std::string(row.param.name); });

// Selecting a model does not create a device.
TEST(BeforeStartup, IsStillAnErrorOnceAModelIsSelected) {
  GetLibVersion("K3610");
  const LoggedErrors errors;
  EXPECT_EQ(SetTriMode(1), -1);
  EXPECT_EQ(GetImageWidth(), 0xFFFFFFFF);
  EXPECT_THAT(errors.lines(), ElementsAre(MatchesRegex("VeltranoApi.*: SetTriMode: .+"),
                                          MatchesRegex("VeltranoApi.*: GetImageWidth: .+")));
}

TEST(BeforeStartup, SomeFunctionsNeedNoDevice) {
  const LoggedErrors errors;
  EXPECT_EQ(GetStripReleaseNum(), 0u);
  EXPECT_EQ(ResetStripReleaseNum(), 0);
  EXPECT_EQ(Temp18b20Read(), 0);
  CaptureStdout();
  EXPECT_EQ(SetExtTriggerState(0), 0);
  EXPECT_EQ(SetDADelayState(0), 0);
  EXPECT_EQ(SetExtTriggerState(5), -1);
  EXPECT_EQ(SetDADelayState(5), -1);
  EXPECT_EQ(GetCapturedStdout(),
            "SetExtTriggerState This thread has been closed!\n "
            "SetDADelayState This thread has been closed!\n ");
  EXPECT_THAT(errors.lines(), IsEmpty());
}

TEST(BeforeStartup, NullCoefficientsAreAnError) {
  const LoggedErrors errors;
  EXPECT_EQ(SetStripRebuildValue(nullptr), -1);
  EXPECT_THAT(errors.lines(), ElementsAre(MatchesRegex("VeltranoApi.*: SetStripRebuildValue: .+")));
}

// The two tables list all exported device functions.
TEST(BeforeStartup, EveryExportedFunctionIsCovered) {
  std::set<std::string> covered;
  for (const Call& call : kCalls) covered.insert(call.name);
  for (const Call& call : kWithoutDevice) covered.insert(call.name);

  std::ifstream list(std::filesystem::path(__FILE__).parent_path().parent_path() / "exports.txt");
  ASSERT_TRUE(list.is_open());
  std::vector<std::string> missing;
  for (std::string name; std::getline(list, name);) {
    // Device functions have names in upper camel case and are not EEPROM functions.
    const bool device = isupper(static_cast<unsigned char>(name[0])) != 0 &&
                        name != "TESSALINE_1" && !name.starts_with("Config");
    if (device && !covered.contains(name)) missing.push_back(name);
  }
  EXPECT_THAT(missing, IsEmpty());
}

}  // namespace
