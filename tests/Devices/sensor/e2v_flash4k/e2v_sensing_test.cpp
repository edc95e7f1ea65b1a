// What times the exposure of the e2v Flash 4K on a K4010 board, and how: exposure, sensing mode,
// high dynamic range.
#include <algorithm>

#include "Devices/sensor/e2v_flash4k/E2vSensorTest.h"
#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::LoggedLines;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using E2vSensing = E2vSensorTest;

// --- Exposure timed by the sensor ----------------------------------------------------------

TEST_F(E2vSensing, WithoutSensingTheSensorTimesNothing) {
  EXPECT_FALSE(sensor().SetExposureTime(100));
  EXPECT_THAT(Accesses(), IsEmpty());
}

struct Exposure {
  unsigned time;
  const char* written;
};
// (time - 0.714) / 0.17 steps, less one.
constexpr Exposure kExposures[]{
    {100, "0097 = 0247"},   {1, "0097 = 0000"},     {0, "0097 = 0000"},         {2, "0097 = 0006"},
    {11141, "0097 = FFFA"}, {11142, "0097 = FFFE"}, {0xFFFFFFFF, "0097 = FFFE"}};

TEST_F(E2vSensing, ExposureIsCountedInTheSensorsSteps) {
  EnterSensing();
  for (const auto& [time, written] : kExposures) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(sensor().SetExposureTime(time));
    EXPECT_THAT(Accesses(), ElementsAre(written)) << time;
  }
}

TEST_F(E2vSensing, TheHdrFactorStretchesTheStep) {
  EnterSensing();
  Printed([&] { ASSERT_TRUE(sensor().SetHDRParam(E2vFlash4k::kPosiSquared, 10)); });
  tessaline_board_transcript_clear();
  EXPECT_TRUE(sensor().SetExposureTime(1000));
  // 999.286 / (10 x 10 x 0.017) = 587.8
  EXPECT_THAT(Accesses(), ElementsAre("0097 = 024A"));
  EXPECT_TRUE(sensor().SetHDRParam(E2vFlash4k::kPosiSecond, 20));
  tessaline_board_transcript_clear();
  EXPECT_TRUE(sensor().SetExposureTime(1000));
  // 999.286 / (20 x 0.017) = 2939.07
  EXPECT_THAT(Accesses(), ElementsAre("0097 = 0B7A"));
}

// 33423.286 / (30 x 0.017) = 65535.9, the largest value in range.
TEST_F(E2vSensing, TheLongestExposureIsInRange) {
  EnterSensing();
  Printed([&] { ASSERT_TRUE(sensor().SetHDRParam(E2vFlash4k::kPosiFirst, 30)); });
  tessaline_board_transcript_clear();
  const LoggedLines logged(TESSALINE_LOG_ERROR);
  EXPECT_TRUE(sensor().SetExposureTime(33424));
  EXPECT_THAT(Accesses(), ElementsAre("0097 = FFFE"));
  EXPECT_THAT(logged.Take(), IsEmpty());
  EXPECT_TRUE(sensor().SetExposureTime(33425));
  EXPECT_EQ(Accesses().back(), "0097 = FFFE");
  EXPECT_THAT(logged.Take(), ElementsAre(HasSubstr("Out of Range! exposure_time:33425")));
}

TEST_F(E2vSensing, ExposureIsLogged) {
  EnterSensing();
  const LoggedLines logged(TESSALINE_LOG_DEBUG);
  log_set_level(TESSALINE_LOG_DEBUG);
  sensor().SetExposureTime(100);
  EXPECT_THAT(logged.Take(), ElementsAre("DEBUG Devices/E2vFlash4kSensing.cpp: "
                                         "E2vFlash4k::SetExposureTime  P:584 \n"));
  sensor().SetExposureTime(20000);
  EXPECT_THAT(logged.Take(),
              ElementsAre(HasSubstr("E2vFlash4k::SetExposureTime  P:117642 \n"),
                          HasSubstr("ERROR Devices/E2vFlash4kSensing.cpp: E2vFlash4k::"
                                    "SetExposureTime Out of Range! exposure_time:20000 \n")));
  sensor().SetExposureTime(0);
  EXPECT_THAT(logged.Take(),
              ElementsAre(HasSubstr("E2vFlash4k::SetExposureTime  P:0 \n"),
                          HasSubstr("ERROR Devices/E2vFlash4kSensing.cpp: E2vFlash4k::"
                                    "SetExposureTime P == 0! exposure_time:0 \n")));
  FailWrite(0);
  Printed([&] { EXPECT_FALSE(sensor().SetExposureTime(100)); });
  EXPECT_THAT(logged.Take(),
              ElementsAre(HasSubstr("P:584"),
                          HasSubstr("E2vFlash4k::RegisterInitialize Write 0x0097 failed!\n")));
}

// --- Sensing mode --------------------------------------------------------------------------

TEST_F(E2vSensing, TheSameSensingModeChangesNothing) {
  EXPECT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingFpga));
  EXPECT_TRUE(sensor().SetSensingMode(static_cast<E2vFlash4k::Sensing>(2)));
  EXPECT_THAT(Programming(), IsEmpty());
  EnterSensing();
  EXPECT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor));
  EXPECT_THAT(Programming(), IsEmpty());
}

TEST_F(E2vSensing, AnotherSensingModeReloadsTheChipAndRestoresTheUsersSettings) {
  Printed([&] {
    ASSERT_TRUE(sensor().ModifyHorizontalBlanking(1));
    ASSERT_TRUE(sensor().SetReadoutDriveDirection(kVerticalFlip));
    ASSERT_TRUE(sensor().SetROI(64, 8, 640, 80));
  });
  tessaline_board_transcript_clear();
  const std::string told =
      Told([&] { EXPECT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor)); });
  EXPECT_TRUE(sensor().sensing());
  EXPECT_EQ(told,
            "----- left:64, top:8, width:4096, height:1080 ----- \n"
            "E2vFlash4k::SetROIImpl param error: left:64, top:8, width:4096, height:1080\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n"
            "----- left:64, top:8, width:640, height:80 ----- \n"
            "info E2vFlash4k::SetROIImpl logic! \n");
  Lines steps = Programming();
  const auto lvds = std::find(steps.begin(), steps.end(), "0122 = 3530");
  const auto done = std::find(steps.begin(), steps.end(), "012F = 0001");
  const auto blanking = std::find(done, steps.end(), "0021 = 0080");
  ASSERT_LT(blanking, lvds);
  const Lines loaded = Lines{"page 0"} + PlaceholderOn(0) + Lines{"page 1"};
  EXPECT_THAT(Lines(steps.begin(), steps.begin() + 8), ElementsAreArray(loaded));
  EXPECT_LT(std::find(steps.begin(), steps.end(), "page 11"), done);
  EXPECT_LT(std::find(steps.begin(), steps.end(), "0097 = 0247"), done);
  EXPECT_THAT(
      Lines(lvds + 10, steps.end()),
      ElementsAreArray(
          Lines{"0023 ?", "0023 = 0004", "0031 ?", "0031 = 0000", "0023 ?", "0023 = 0004",
                "0034 = 0001", "0035 = 0009", "0024 = 0001", "0025 = 0009"} +
          kUpdates +
          Lines{"ISP_WIDTH = 0x00000001", "ISP_HEIGHT = 0x0000000a", "ISP_CTRL = 0x00000001",
                "STRIP_IMAGE_WIDTH = 0x00000280", "STRIP_IMAGE_HEIGHT = 0x00000050",
                "STRIP_SELECTOR_IMAGE_WIDTH = 0x00000280", "EXP_DELAY = 0x00000000"} +
          kPlaceholderList +                                         // gain
          Lines{"page 0", "0001 = 1000", "0001 = 0009", "page 0"} +  // HDR
          Lines{"SENSOR_TIMING = 0x0000001c", "EXP_DELAY = 0x00000000"}));
  EXPECT_EQ(sensor().roi_x(), 64u);
  EXPECT_EQ(sensor().roi_width(), 640u);
  EXPECT_EQ(sensor().roi_height(), 80u);
}

TEST_F(E2vSensing, ASensingModeThatCannotBeLoadedIsNotEntered) {
  FailWrite(0);
  Printed([&] { EXPECT_FALSE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor)); });
  EXPECT_FALSE(sensor().sensing());
  EXPECT_EQ(Accesses().size(), 1u);
  EnterSensing();
  EXPECT_TRUE(sensor().sensing());
}

// One restoring write fails and all others succeed. Writes are counted from the first one of the
// direction.
TEST_F(E2vSensing, ASettingThatCannotBeRestoredIsAFailure) {
  Printed([&] { ASSERT_TRUE(sensor().SetROI(0, 0, 640, 80)); });
  EnterSensing();
  const auto change = [&](unsigned round) {
    const auto mode = round % 2 == 0 ? E2vFlash4k::kSensingFpga : E2vFlash4k::kSensingSensor;
    return sensor().SetSensingMode(mode);
  };
  Printed([&] { ASSERT_TRUE(change(0)); });
  Lines writes = Accesses();
  std::erase_if(writes, [](const std::string& access) { return access.ends_with('?'); });
  const auto lvds = std::find(writes.begin(), writes.end(), "0128 = 0001");
  ASSERT_LT(lvds, writes.end());
  const auto first = static_cast<unsigned>(lvds - writes.begin()) + 6;
  ASSERT_EQ(writes[first], "0023 = 0000");
  for (unsigned write = first; write < writes.size(); ++write) {
    FailWrite(write);
    Printed([&] { EXPECT_FALSE(change(write - first + 1)) << write << ' ' << writes[write]; });
    EXPECT_EQ(sensor().roi_width(), 640u);
  }
}

TEST_F(E2vSensing, SettingsThatWereRefusedAreNoFailureOfTheSensingMode) {
  Printed([&] {
    EXPECT_FALSE(sensor().SetReadoutDriveDirection(kBothFlip));
    EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode11));
    EXPECT_FALSE(sensor().SetHDRParam(static_cast<E2vFlash4k::KPosi>(3), 10));
    EXPECT_FALSE(sensor().SetROI(1, 2, 3, 4));
    EXPECT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor));
    EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode22));
    EXPECT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingFpga));
  });
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode22);
  EXPECT_EQ(sensor().read_out_drive_direction(), kBothFlip);
}

// --- High dynamic range --------------------------------------------------------------------

struct Hdr {
  E2vFlash4k::KPosi posi;
  unsigned short k;
  Lines values;
  const char* factors;
};
// The head, k - 1, and for the squared form k x k - k - 1 in two halves.
const Hdr kHdr[]{
    {E2vFlash4k::kPosiFirst, 10, {"1000", "0009"}, "kSub1:9\n"},
    {E2vFlash4k::kPosiSecond, 4, {"1000", "0004"}, "kSub1:4\n"},
    {E2vFlash4k::kPosiSecond, 501, {"1000", "01F3"}, "kSub1:499\n"},
    {E2vFlash4k::kPosiSquared, 10, {"1400", "0009", "0059", "0000"}, "kSub1:9, kSqSubK:89\n"},
    {E2vFlash4k::kPosiSquared,
     0xFFFF,
     {"1400", "01F3", "CE9B", "0003"},
     "kSub1:499, kSqSubK:249499\n"},
};

TEST_F(E2vSensing, HdrWritesThePositionsListAndLogsItsFactors) {
  const LoggedLines logged(TESSALINE_LOG_DEBUG);
  log_set_level(TESSALINE_LOG_DEBUG);
  for (const auto& [posi, k, values, factors] : kHdr) {
    tessaline_board_transcript_clear();
    logged.Take();
    EXPECT_TRUE(sensor().SetHDRParam(posi, k));
    EXPECT_THAT(logged.Take(),
                ElementsAre(HasSubstr("posi:" + std::to_string(posi) + '\n'), HasSubstr(factors)));
    Lines writes;
    for (const std::string& value : values) writes.push_back("0001 = " + value);
    EXPECT_THAT(Accesses(), ElementsAreArray(Lines{"page 0"} + writes + Lines{"page 0"}));
    EXPECT_EQ(Chip(0x0001), 0x2030);
  }
}

TEST_F(E2vSensing, AnUnknownHdrPositionIsAnErrorAndWritesNothing) {
  const LoggedLines logged(TESSALINE_LOG_ERROR);
  EXPECT_FALSE(sensor().SetHDRParam(static_cast<E2vFlash4k::KPosi>(3), 10));
  EXPECT_THAT(logged.Take(), ElementsAre(HasSubstr("there is no HDR position 3")));
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(E2vSensing, HdrTellsWhatFailed) {
  FailWrite(1);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().SetHDRParam(E2vFlash4k::kPosiFirst, 10)); }),
            "E2vFlash4k::BatchWriteRegister Write 1 failed!\n");
}

// --- Through the exported functions --------------------------------------------------------

TEST_F(E2vSensing, TheFpgaTimesTheExposureUntilTheSensorDoes) {
  EXPECT_EQ(SetExposureTime(1, 100), 0);
  EXPECT_EQ(Get(fpga::kReg.EXP_TIME_1), 1500u);
  EXPECT_THAT(Accesses(), IsEmpty());
  Printed([&] { EXPECT_EQ(SetSensingMode(1), 0); });
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetExposureTime(2, 100), 0);
  EXPECT_THAT(Programming(), ElementsAre("0097 = 0247", "EXP_TIME_2 = 0x0000000f"));
}

TEST_F(E2vSensing, HdrParametersReachTheSensor) {
  EXPECT_EQ(SetHDRParam(2, 10), 0);
  EXPECT_EQ(Accesses().size(), 6u);
}

}  // namespace
}  // namespace VeltranoSDK
