// Every function that hands one number to one control: what it writes, what it
// returns, and what a getter makes of a register.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "api/StartedBoard.h"

namespace {

using tessaline_test::StartedBoard;
using tessaline_test::Wrote;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace fpga = VeltranoSDK::fpga;

struct Preset {
  fpga::Register reg;
  std::uint32_t value;
};

// --- Setters -----------------------------------------------------------------------------

struct Setter {
  const char* name;
  int (*call)();
  std::vector<Preset> before;
  std::vector<Preset> written;
  int result = 0;
  const char* printed = "";
};

void PrintTo(const Setter& row, std::ostream* out) { *out << row.name; }

constexpr std::uint32_t kAll = 0xFFFFFFFF;

const Setter kSetters[] = {
    // Trigger
    {"SetTriMode",
     [] { return SetTriMode(2); },
     {{fpga::TRIGGER_CTRL, 0x7C}},
     {{fpga::TRIGGER_CTRL, 0x7E}}},
    {"TricontrolSWTrigger",
     [] { return TricontrolSWTrigger(); },
     {{fpga::TRIGGER_CTRL, 0x3}},
     {{fpga::TRIGGER_CTRL, 0xB}, {fpga::TRIGGER_CTRL, 0x3}}},
    {"SetTriSpacingMicroseconds",
     [] { return SetTriSpacing(1000); },
     {{fpga::TRIGGER_CTRL, 0}},
     {{fpga::TRI_SPACING, 50000}}},
    {"SetTriSpacingMinimum",
     [] { return SetTriSpacing(1); },
     {{fpga::TRIGGER_CTRL, 0}},
     {{fpga::TRI_SPACING, 100}}},
    {"SetTriSpacingPulses",
     [] { return SetTriSpacing(1); },
     {{fpga::TRIGGER_CTRL, 1}},
     {{fpga::TRI_SPACING, 1}}},
    {"SetDoorControlEn",
     [] { return SetDoorControlEn(1); },
     {{fpga::TRIGGER_CTRL, 1}},
     {{fpga::TRIGGER_CTRL, 5}}},
    {"SetDoorControlEnRefused",
     [] { return SetDoorControlEn(1); },
     {{fpga::TRIGGER_CTRL, 2}},
     {},
     -1,
     "SetDoorControlEn TriMode invalid parameter!\n"},
    {"SetTriDelayStandard",
     [] { return SetTriDelayStandard(1); },
     {{fpga::TRIGGER_CTRL, 3}},
     {{fpga::TRIGGER_CTRL, 0x23}}},
    {"SetDelayEn",
     [] { return SetDelayEn(1); },
     {{fpga::TRIGGER_CTRL, 3}},
     {{fpga::TRIGGER_CTRL, 0x13}}},
    {"SetTriDelayMicroseconds",
     [] { return SetTriDelay(7); },
     {{fpga::TRIGGER_CTRL, 3}},
     {{fpga::TRI_DELAY, 350}}},
    {"SetTriDelayPulses",
     [] { return SetTriDelay(7); },
     {{fpga::TRIGGER_CTRL, 0x23}},
     {{fpga::TRI_DELAY, 7}}},
    {"SetReverseMode_io",
     [] { return SetReverseMode_io(2); },
     {{fpga::REVERSE_CTRL, 0xFFC}},
     {{fpga::REVERSE_CTRL, 0xFFE}}},
    {"SetReverseDistance",
     [] { return SetReverseDistance(0x7FF); },
     {{fpga::REVERSE_CTRL, 2}},
     {{fpga::REVERSE_CTRL, 0xFFE}}},
    {"SetReverseDistanceRefused",
     [] { return SetReverseDistance(1); },
     {{fpga::REVERSE_CTRL, 1}},
     {},
     -1,
     "SetReverseDistance ReverseMode invalid parameter!\n"},
    {"TriggerLostReset",
     [] { return TriggerLostReset(); },
     {{fpga::LASER_CTRL, 2}},
     {{fpga::LASER_CTRL, 3}, {fpga::LASER_CTRL, 2}}},
    {"SetMasterConctrolID",
     [] { return SetMasterConctrolID(0x1F); },
     {{fpga::MASTER_CTRL, 0xF0}},
     {{fpga::MASTER_CTRL, 0x1F}}},
    {"SetExternSignalFilter",
     [] { return SetExternSignalFilter(10); },
     {},
     {{fpga::EXTIN_WIDTH, 500}}},
    {"SetLasTriPolarity",
     [] { return SetLasTriPolarity(1); },
     {{fpga::POLARITY, 0x3B}},
     {{fpga::POLARITY, 0x3F}}},

    // Outputs
    {"SetOutWidth",
     [] { return SetOutWidth(1, 0xFFFFFFFF); },
     {{fpga::DO2_CTRL, 0}},
     {{fpga::DO2_CTRL, 0x1FFFFF}}},
    {"SetOutWidthRefused",
     [] { return SetOutWidth(2, 1); },
     {},
     {},
     -1,
     "SetOutWidth invalid parameter!\n"},
    {"SetOutEvent",
     [] { return SetOutEvent(0, 3); },
     {{fpga::DO1_CTRL, 0}},
     {{fpga::DO1_CTRL, 3u << 21}}},
    {"SetOutMode",
     [] { return SetOutMode(1, 1); },
     {{fpga::DO2_CTRL, 0}},
     {{fpga::DO2_CTRL, 1u << 23}}},
    {"SetOutDelayEn",
     [] { return SetOutDelayEn(0, 1); },
     {{fpga::DO1_CTRL, 0}},
     {{fpga::DO1_CTRL, 1u << 24}}},
    {"OutputSWTrigger",
     [] { return OutputSWTrigger(0); },
     {{fpga::DO1_CTRL, 1u << 26 | 5}},
     {{fpga::DO1_CTRL, 3u << 25 | 5}, {fpga::DO1_CTRL, 5}}},
    {"OutputSWTriggerRefused",
     [] { return OutputSWTrigger(2); },
     {},
     {},
     -1,
     "SWTrigger invalid parameter!\n"},
    {"WRFifo",
     [] { return WRFifo(1); },
     {{fpga::DO2_CTRL, 5}},
     {{fpga::DO2_CTRL, 1u << 26 | 5}, {fpga::DO2_CTRL, 5}}},
    {"SetDigitalOutputEnState",
     [] { return SetDigitalOutputEnState(0, 1); },
     {{fpga::DO1_CTRL, 0}},
     {{fpga::DO1_CTRL, 1u << 27}}},
    {"SetExtTriDelayStandard",
     [] { return SetExtTriDelayStandard(1, 1); },
     {{fpga::DO2_CTRL, 0}},
     {{fpga::DO2_CTRL, 1u << 28}}},
    {"SetExtTriDelayStandardOfTheDa",
     [] { return SetExtTriDelayStandard(2, 1); },
     {{fpga::IRQ_CTRL, 5}},
     {{fpga::IRQ_CTRL, 7}}},
    {"SetExtTriDelayStandardRefused",
     [] { return SetExtTriDelayStandard(0, 2); },
     {},
     {},
     -1,
     "SetExtTriDelayStandard mode error!\n"},
    {"SetOutDelay",
     [] { return SetOutDelay(0, 0x1'0000'0000); },
     {{fpga::DO1_CTRL, 0}},
     {{fpga::DO1_DELAY_L, 0}, {fpga::DO1_DELAY_H, 50}}},
    {"SetOutDelayPulses",
     [] { return SetOutDelay(1, 3); },
     {{fpga::DO2_CTRL, 1u << 28}},
     {{fpga::DO2_DELAY_L, 3}, {fpga::DO2_DELAY_H, 0}}},
    {"SetOutPolarity",
     [] { return SetOutPolarity(1, 1); },
     {{fpga::POLARITY, 0}},
     {{fpga::POLARITY, 0x20}}},
    {"SetDAOutputDelay",
     [] { return SetDAOutputDelay(3); },
     {{fpga::IRQ_CTRL, 0}},
     {{fpga::DA_OUTPUT_DELAY, 150}}},

    // Exposure and laser
    {"SetExposureNum",
     [] { return SetExposureNum(5); },
     {{fpga::EXPOSURE_NUM, 0xBB81}},
     {{fpga::EXPOSURE_NUM, 0xBB85}}},
    {"SetExposureNumNone", [] { return SetExposureNum(0); }, {}, {}, -1},
    {"SetExposureNumTooMany", [] { return SetExposureNum(6); }, {}, {}, -1},
    {"SetLaserMode",
     [] { return SetLaserMode(1); },
     {{fpga::LASER_CTRL, kAll}},
     {{fpga::LASER_CTRL, 3}}},

    // Strips
    {"SetStripWidthMin", [] { return SetStripWidthMin(0); }, {}, {{fpga::STRIP_WIDTH_MIN, 1}}},
    {"SetStripWidthMax", [] { return SetStripWidthMax(500); }, {}, {{fpga::STRIP_WIDTH_MAX, 128}}},
    {"SetRisThresholdValue",
     [] { return SetRisThresholdValue(100); },
     {},
     {{fpga::RIS_THRESHOLD, 100}}},
    {"SetRisThresholdValueClamped",
     [] { return SetRisThresholdValue(0xFFFFFFFF); },
     {},
     {{fpga::RIS_THRESHOLD, 255}}},
    {"SetStripDataMode", [] { return SetStripDataMode(1); }, {}, {{fpga::STRIP_DATA_MODE, 1}}},
    {"SetStripWriteMemMode",
     [] { return SetStripWriteMemMode(1); },
     {},
     {{fpga::STRIP_WRIMEM_STRATEGY, 1}, {fpga::STRIP_WRIMEM_STRATEGY_WIDTH, 1}}},
    {"SetMeasuringRange",
     [] { return SetMeasuringRange(0xFFFFFFFF, 5); },
     {},
     {{fpga::MEASURING_RANGE_START, 0x3FFFFFF}, {fpga::MEASURING_RANGE_END, 5}}},
    {"SetRoiOffset",
     [] { return SetRoiOffset(0x1234, 0x2345); },
     {{fpga::ROI_OFFSET, 0xFE000000}},
     {{fpga::ROI_OFFSET, 0xFE000000 | 0x345 << 12 | 0x234}}},
    {"SetSampleLightLineParam",
     [] { return SetSampleLightLineParam(-1, 2, 3, 4, 5); },
     {},
     {{fpga::RECONSTRUCTION_START_X, kAll},
      {fpga::RECONSTRUCTION_STEP_X, 2},
      {fpga::RECONSTRUCTION_CNT_X, 3},
      {fpga::SAMPLE_LINE_PARAM_4, 4},
      {fpga::SAMPLE_LINE_PARAM_5, 5}}},
    {"ResetFrameID",
     [] { return ResetFrameID(); },
     {},
     {{fpga::FRAME_ID_RESET, 1}, {fpga::FRAME_ID_RESET, 0}}},
    // Done, and yet a failure.
    {"ResetCallbackLostNum",
     [] { return ResetCallbackLostNum(); },
     {},
     {{fpga::CALLBACK_LOST_RESET, 1}, {fpga::CALLBACK_LOST_RESET, 0}},
     -1},

    // Image processing
    {"SetBinEnable", [] { return SetBinEnable(1); }, {{fpga::ISP_CTRL, 1}}, {{fpga::ISP_CTRL, 5}}},
    {"SetHotpixelEnable",
     [] { return SetHotpixelEnable(1); },
     {{fpga::ISP_CTRL, 0xFF01}},
     {{fpga::ISP_CTRL, 9}}},
    {"SetObOffset", [] { return SetObOffset(77); }, {}, {{fpga::OB_OFFSET, 77}}},
    {"SetBriThresMax",
     [] { return SetBriThresMax(0x12); },
     {{fpga::BRI_THRES, kAll}},
     {{fpga::BRI_THRES, 0xFF12}}},
    {"SetBriThresMin",
     [] { return SetBriThresMin(0x12); },
     {{fpga::BRI_THRES, kAll}},
     {{fpga::BRI_THRES, 0x12FF}}},
    {"SetEnhanceEnable",
     [] { return SetEnhanceEnable(1); },
     {{fpga::ENHANCE_CTRL, 0}},
     {{fpga::ENHANCE_CTRL, 1}}},
    {"SetEnhanceThresMax",
     [] { return SetEnhanceThresMax(255); },
     {{fpga::ENHANCE_CTRL, 0}},
     {{fpga::ENHANCE_CTRL, 255u << 1}}},
    {"SetEnhanceThresMin",
     [] { return SetEnhanceThresMin(255); },
     {{fpga::ENHANCE_CTRL, 0}},
     {{fpga::ENHANCE_CTRL, 255u << 9}}},
    {"SetEnhanceThresNum",
     [] { return SetEnhanceThresNum(15); },
     {{fpga::ENHANCE_CTRL, 0}},
     {{fpga::ENHANCE_CTRL, 15u << 17}}},
    {"SetEnhanceGain",
     [] { return SetEnhanceGain(7); },
     {{fpga::ENHANCE_CTRL, 0}},
     {{fpga::ENHANCE_CTRL, 7u << 21}}},
    {"SetMedianFilterEnable",
     [] { return SetMedianFilterEnable(1); },
     {{fpga::MEDIAN_CTRL, 0}},
     {{fpga::MEDIAN_CTRL, 1}}},
    {"SetErosionFilterEnable",
     [] { return SetErosionFilterEnable(1); },
     {{fpga::EROSION_CTRL, 0}},
     {{fpga::EROSION_CTRL, 1}}},
    {"SetErosionThresMax",
     [] { return SetErosionThresMax(255); },
     {{fpga::EROSION_CTRL, 0}},
     {{fpga::EROSION_CTRL, 255u << 1}}},
    {"SetErosionThresMin",
     [] { return SetErosionThresMin(255); },
     {{fpga::EROSION_CTRL, 0}},
     {{fpga::EROSION_CTRL, 255u << 9}}},
    {"SetErosionThresNum",
     [] { return SetErosionThresNum(15); },
     {{fpga::EROSION_CTRL, 0}},
     {{fpga::EROSION_CTRL, 15u << 17}}},
    {"SetErosionFilterStrategy",
     [] { return SetErosionFilterStrategy(3); },
     {{fpga::EROSION_CTRL, 0}},
     {{fpga::EROSION_CTRL, 3u << 21}}},
};

class SetterOf : public StartedBoard, public ::testing::WithParamInterface<Setter> {};

TEST_P(SetterOf, WritesItsRegister) {
  for (const Preset& preset : GetParam().before) Set(preset.reg, preset.value);
  EXPECT_EQ(GetParam().call(), GetParam().result);
  std::vector<std::string> expected;
  for (const Preset& access : GetParam().written) {
    expected.push_back(Wrote(access.reg, access.value));
  }
  EXPECT_THAT(Writes(), ElementsAreArray(expected));
  EXPECT_EQ(Printed(), GetParam().printed);
}

INSTANTIATE_TEST_SUITE_P(Api, SetterOf, ::testing::ValuesIn(kSetters),
                         [](const auto& row) { return std::string(row.param.name); });

// Image processing tells a failed write by the result alone.
struct ImageProcessing {
  const char* name;
  int (*set)(unsigned int);
};

void PrintTo(const ImageProcessing& row, std::ostream* out) { *out << row.name; }

const ImageProcessing kImageProcessing[] = {
    {"SetBinEnable", SetBinEnable},
    {"SetHotpixelEnable", SetHotpixelEnable},
    {"SetObOffset", SetObOffset},
    {"SetBriThresMax", SetBriThresMax},
    {"SetBriThresMin", SetBriThresMin},
    {"SetEnhanceEnable", SetEnhanceEnable},
    {"SetEnhanceThresMax", SetEnhanceThresMax},
    {"SetEnhanceThresMin", SetEnhanceThresMin},
    {"SetEnhanceThresNum", SetEnhanceThresNum},
    {"SetEnhanceGain", SetEnhanceGain},
    {"SetMedianFilterEnable", SetMedianFilterEnable},
    {"SetErosionFilterEnable", SetErosionFilterEnable},
    {"SetErosionThresMax", SetErosionThresMax},
    {"SetErosionThresMin", SetErosionThresMin},
    {"SetErosionThresNum", SetErosionThresNum},
    {"SetErosionFilterStrategy", SetErosionFilterStrategy},
};

class ImageProcessingOf : public StartedBoard,
                          public ::testing::WithParamInterface<ImageProcessing> {};

TEST_P(ImageProcessingOf, FailsWithItsWrite) {
  tessaline_board_fault("fpga", "mmap", 0, 0, ENOMEM);
  EXPECT_EQ(GetParam().set(1), -1);
  EXPECT_EQ(Printed(), "");
  tessaline_board_clear_faults();
  EXPECT_EQ(GetParam().set(1), 0);
}

INSTANTIATE_TEST_SUITE_P(Api, ImageProcessingOf, ::testing::ValuesIn(kImageProcessing),
                         [](const auto& row) { return std::string(row.param.name); });

// --- Getters -----------------------------------------------------------------------------

struct Getter {
  const char* name;
  std::uint64_t (*call)();
  std::vector<Preset> before;
  std::uint64_t result;
  const char* printed = "";
};

void PrintTo(const Getter& row, std::ostream* out) { *out << row.name; }

const Getter kGetters[] = {
    {"GetTriSpacing",
     [] { return uint64_t{GetTriSpacing()}; },
     {{fpga::TRI_SPACING, 50001}},
     50001},
    {"GetDoorControlEn", [] { return uint64_t{GetDoorControlEn()}; }, {{fpga::TRIGGER_CTRL, 5}}, 1},
    {"GetDoorControlEnRefused",
     [] { return uint64_t{GetDoorControlEn()}; },
     {{fpga::TRIGGER_CTRL, 6}},
     kAll,
     "GetDoorControlEn TriMode invalid parameter!\n"},
    {"GetTriDelayStandard",
     [] { return uint64_t{GetTriDelayStandard()}; },
     {{fpga::TRIGGER_CTRL, 0x20}},
     1},
    {"GetTriDelayMicroseconds",
     [] { return uint64_t{GetTriDelay()}; },
     {{fpga::TRI_DELAY, 399}},
     7},
    {"GetTriDelayPulses",
     [] { return uint64_t{GetTriDelay()}; },
     {{fpga::TRI_DELAY, 399}, {fpga::TRIGGER_CTRL, 0x20}},
     399},
    {"GetReverseMode_io",
     [] { return uint64_t{GetReverseMode_io()}; },
     {{fpga::REVERSE_CTRL, 0xFFF}},
     3},
    {"GetReverseDistance",
     [] { return uint64_t{GetReverseDistance()}; },
     {{fpga::REVERSE_CTRL, 0x123 << 2 | 2}},
     0x123},
    {"GetReverseDistanceRefused",
     [] { return uint64_t{GetReverseDistance()}; },
     {{fpga::REVERSE_CTRL, 0x123 << 2 | 1}},
     kAll,
     "GetReverseDistance ReverseMode invalid parameter!\n"},
    {"GetEncoderFreq",
     [] { return uint64_t{GetEncoderFreq()}; },
     {{fpga::ENCODER_FREQ, 1234}},
     1234},
    {"GetXtrigLostSta", [] { return uint64_t{GetXtrigLostSta()}; }, {{fpga::XTRIG_LOST_STA, 9}}, 9},
    {"GetGlobalControl",
     [] { return uint64_t{GetGlobalControl()}; },
     {{fpga::TRIGGER_CTRL, 0x40}},
     1},
    {"GetMasterState", [] { return uint64_t{GetMasterState()}; }, {{fpga::MASTER_CTRL, 0x1F}}, 1},
    {"GetMasterConctrolID",
     [] { return uint64_t{GetMasterConctrolID()}; },
     {{fpga::MASTER_CTRL, 0x1A}},
     0xA},
    {"GetOutWidth", [] { return uint64_t{GetOutWidth(1)}; }, {{fpga::DO2_CTRL, kAll}}, 0x1FFFFF},
    {"GetOutWidthRefused",
     [] { return uint64_t{GetOutWidth(2)}; },
     {},
     kAll,
     "GetOutWidth invalid parameter!\n"},
    {"GetOutEvent", [] { return uint64_t{GetOutEvent(0)}; }, {{fpga::DO1_CTRL, kAll}}, 0},
    {"GetOutMode", [] { return uint64_t{GetOutMode(1)}; }, {{fpga::DO2_CTRL, kAll}}, 0},
    {"GetOutDelayEn", [] { return uint64_t{GetOutDelayEn(0)}; }, {{fpga::DO1_CTRL, 1u << 24}}, 1},
    {"GetOutDelay",
     [] { return GetOutDelay(0); },
     {{fpga::DO1_DELAY_L, 49}, {fpga::DO1_DELAY_H, 50}, {fpga::DO1_CTRL, 0}},
     0x1'0000'0000},
    {"GetOutDelayRefused",
     [] { return GetOutDelay(3); },
     {},
     ~uint64_t{0},
     "GetOutDelay invalid parameter!\n"},
    {"GetExposureNum",
     [] { return uint64_t{GetExposureNum()}; },
     {{fpga::EXPOSURE_NUM, 0xBB83}},
     3},
    {"GetRisThresholdValue",
     [] { return uint64_t{GetRisThresholdValue()}; },
     {{fpga::RIS_THRESHOLD, 31}},
     31},
    {"GetStripWidthMin",
     [] { return uint64_t{GetStripWidthMin()}; },
     {{fpga::STRIP_WIDTH_MIN, 3}},
     3},
    {"GetStripWidthMax",
     [] { return uint64_t{GetStripWidthMax()}; },
     {{fpga::STRIP_WIDTH_MAX, 33}},
     33},
    {"GetStripDataMode",
     [] { return uint64_t{GetStripDataMode()}; },
     {{fpga::STRIP_DATA_MODE, 2}},
     2},
    {"GetCallbackLostNum",
     [] { return uint64_t{GetCallbackLostNum()}; },
     {{fpga::CALLBACK_LOST_NUM, 12}},
     12},
    // These do not ask the FPGA.
    {"GetCollectMode", [] { return uint64_t{GetCollectMode()}; }, {{fpga::COLLECT_MODE, 0}}, 1},
    {"GetImageWidth",
     [] { return uint64_t{GetImageWidth()}; },
     {{fpga::STRIP_IMAGE_WIDTH, 5}},
     1456},
    {"GetImageHeight",
     [] { return uint64_t{GetImageHeight()}; },
     {{fpga::STRIP_IMAGE_HEIGHT, 5}},
     1088},
    {"GetCmosMaxDrive", [] { return uint64_t{GetCmosMaxDrive()}; }, {}, 1456u << 16 | 1088},
    {"GetDriveMode", [] { return uint64_t{GetDriveMode()}; }, {}, 0},
    {"GetDigitalPOTResolution", [] { return uint64_t{GetDigitalPOTResolution()}; }, {}, 1024},
};

class GetterOf : public StartedBoard, public ::testing::WithParamInterface<Getter> {};

TEST_P(GetterOf, ReadsAndWritesNothing) {
  for (const Preset& preset : GetParam().before) Set(preset.reg, preset.value);
  EXPECT_EQ(GetParam().call(), GetParam().result);
  EXPECT_THAT(Writes(), IsEmpty());
  EXPECT_EQ(Printed(), GetParam().printed);
}

INSTANTIATE_TEST_SUITE_P(Api, GetterOf, ::testing::ValuesIn(kGetters),
                         [](const auto& row) { return std::string(row.param.name); });

// The counters run: only their order of reading and their halves can be told.
TEST_F(StartedBoard, CountersAreReadLowWordFirst) {
  const std::uint64_t first = GetTimerCounter();
  const std::uint64_t second = GetTimerCounter();
  EXPECT_GE(second, first);
  const auto accesses = Accesses();
  ASSERT_EQ(accesses.size(), 4u);
  EXPECT_TRUE(accesses[0].starts_with("read IMAGE_BLOCK_1 TIMER_COUNTER_L = "));
  EXPECT_TRUE(accesses[1].starts_with("read IMAGE_BLOCK_1 TIMER_COUNTER_H = "));

  tessaline_board_transcript_clear();
  GetEncoderCounter();
  const auto encoder = Accesses();
  ASSERT_EQ(encoder.size(), 2u);
  EXPECT_TRUE(encoder[0].starts_with("read IMAGE_BLOCK_1 ENCODER_COUNTER_L = "));
  EXPECT_TRUE(encoder[1].starts_with("read IMAGE_BLOCK_1 ENCODER_COUNTER_H = "));
}

}  // namespace
