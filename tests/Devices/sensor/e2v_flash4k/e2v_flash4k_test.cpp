// Settings of the e2v Flash 4K on a K4010 board: region, readout mode, direction,
// gain and blanking.
#include <algorithm>

#include "Devices/fpga/FpgaLogic.h"
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

using E2v = E2vSensorTest;

TEST_F(E2v, IsWhatTheBoardHas) {
  EXPECT_EQ(sensor().model(), kE2vFlash4k);
  EXPECT_EQ(sensor().resolution(), std::pair(4096u, 1080u));
  EXPECT_EQ(sensor().GetStripWidth(), 8192u);
  EXPECT_EQ(sensor().GetStripHeight(), 2048u);
  EXPECT_EQ(sensor().GetStripBufferSize(), 16777216u);
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x0136260Du);
  EXPECT_EQ(sensor().GetSensorTemp(), 0u);
  EXPECT_EQ(sensor().GetSensorVer(0), 0xFFFFFFFFu);
  EXPECT_EQ(sensor().GetSensorVer(1), 0xFFFFFFFFu);
  EXPECT_EQ(sensor().GetExposureTimeUnit(), 0.06666667F);
  EXPECT_FALSE(sensor().sensing());
  EXPECT_THAT(Accesses(), IsEmpty());
}

// --- Region of interest --------------------------------------------------------------------

TEST_F(E2v, ARegionGoesToChipAndFpga) {
  Set(fpga::kReg.ISP_CTRL, 0xFF);
  EXPECT_EQ(Told([&] { EXPECT_TRUE(sensor().SetROI(64, 8, 4032, 1072)); }),
            "----- left:64, top:8, width:4032, height:1072 ----- \n"
            "info E2vFlash4k::SetROIImpl logic! \n");
  EXPECT_THAT(
      Programming(),
      ElementsAreArray(
          Lines{"0034 = 0001", "0035 = 003E", "0024 = 0001", "0025 = 0085"} + kUpdates +
          Lines{"ISP_WIDTH = 0x00000001", "ISP_HEIGHT = 0x0000003f", "ISP_CTRL = 0x000000fd",
                "STRIP_IMAGE_WIDTH = 0x00000fc0", "STRIP_IMAGE_HEIGHT = 0x00000430",
                "STRIP_SELECTOR_IMAGE_WIDTH = 0x00000fc0", "EXP_DELAY = 0x000067cc"}));
}

TEST_F(E2v, TheSmallestAndTheLargestRegionAreTaken) {
  Printed([&] {
    EXPECT_TRUE(sensor().SetROI(0, 0, 64, 8));
    EXPECT_TRUE(sensor().SetROI(4032, 1072, 64, 8));
    EXPECT_TRUE(sensor().SetROI(0, 0, 4096, 1080));
  });
}

struct Region {
  unsigned x, y, width, height;
};
constexpr Region kRefused[]{{32, 0, 64, 8},     {0, 4, 64, 8},          {0, 0, 32, 8},
                            {0, 0, 0, 8},       {0, 0, 96, 8},          {0, 0, 64, 4},
                            {0, 0, 64, 0},      {0, 0, 64, 12},         {64, 0, 4096, 1080},
                            {0, 8, 4096, 1080}, {4096, 0, 64, 8},       {0, 1080, 64, 8},
                            {0, 0, 4160, 8},    {0xFFFFFFC0, 0, 64, 8}, {0, 0xFFFFFFF8, 64, 8}};

TEST_F(E2v, OtherRegionsAreRefusedAndRecorded) {
  for (const auto& [x, y, width, height] : kRefused) {
    tessaline_board_transcript_clear();
    char text[200];
    snprintf(text, sizeof text,
             "----- left:%d, top:%d, width:%d, height:%d ----- \n"
             "E2vFlash4k::SetROIImpl param error: left:%d, top:%d, width:%d, height:%d\n",
             static_cast<int>(x), static_cast<int>(y), width, height, static_cast<int>(x),
             static_cast<int>(y), width, height);
    // Clang 14 cannot capture a structured binding.
    const auto refused = [&, x = x, y = y, width = width, height = height] {
      EXPECT_FALSE(sensor().SetROI(x, y, width, height));
    };
    EXPECT_EQ(Printed(refused), text);
    EXPECT_THAT(Programming(), IsEmpty());
    EXPECT_EQ(sensor().roi_x(), x);
    EXPECT_EQ(sensor().roi_height(), height);
  }
}

TEST_F(E2v, ARegionTellsWhatFailed) {
  const std::string asked =
      "----- left:0, top:0, width:64, height:8 ----- \ninfo E2vFlash4k::SetROIImpl logic! \n";
  const char* const kTexts[]{"E2vFlash4k::SetROIImpl Write 0x0034 failed!\n",
                             "E2vFlash4k::SetROIImpl Write 0x0035 failed!\n",
                             "E2vFlash4k::SetROIImpl Write 0x0024 failed!\n",
                             "E2vFlash4k::SetROIImpl Write 0x0025 failed!\n",
                             "E2vSpiInterface::UpdateRegisters() error!\n"
                             "E2vFlash4k::RegisterInitialize UpdateRegisters failed!\n",
                             "E2vSpiInterface::UpdateROI() error!\n"
                             "E2vFlash4k::RegisterInitialize UpdateROI failed!\n"};
  for (unsigned i = 0; i < std::size(kTexts); ++i) {
    PowerUp();
    FailWrite(i);
    EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().SetROI(0, 0, 64, 8)); }), asked + kTexts[i]);
    EXPECT_EQ(Programming().back(), "failed");
  }
}

TEST_F(E2v, ARegionNeedsAnFpga) {
  const LoggedLines logged(TESSALINE_LOG_ERROR);
  devices().fpga_logic_.reset();
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetROI(0, 0, 64, 8)); }),
            "----- left:0, top:0, width:64, height:8 ----- \n");
  EXPECT_THAT(logged.Take(), ElementsAre(HasSubstr("E2vFlash4k: there is no FPGA")));
  EXPECT_THAT(Accesses(), IsEmpty());
}

// --- Readout mode and direction ------------------------------------------------------------

TEST_F(E2v, EveryPixelClearsTheReductionAndReappliesTheRegion) {
  SetChip(0x0031, 0x8003);
  SetChip(0x0023, 0x1234);
  Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode00)); });
  const Lines accesses = Accesses();
  ASSERT_GT(accesses.size(), 8u);
  EXPECT_THAT(Lines(accesses.begin(), accesses.begin() + 8),
              ElementsAre("0031 ?", "0031 = 8002", "0023 ?", "0023 = 1234", "0034 = 0000",
                          "0035 = 003F", "0024 = 0000", "0025 = 0086"));
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_WIDTH), 4096u);
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_HEIGHT), 1080u);
}

// Half of 1080 is 540, and rows come in steps of 8.
TEST_F(E2v, HalvedReadoutIsSetUpAndFailsOnItsRegion) {
  SetChip(0x0031, 0x8000);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode11)); }),
            "----- left:0, top:0, width:2048, height:540 ----- \n"
            "E2vFlash4k::SetROIImpl param error: left:0, top:0, width:2048, height:540\n"
            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n");
  EXPECT_THAT(Programming(), ElementsAre("0031 ?", "0031 = 8001", "0023 ?", "0023 = 0000"));
  EXPECT_EQ(sensor().roi_width(), 2048u);
  EXPECT_EQ(sensor().roi_height(), 540u);
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode11);

  tessaline_board_transcript_clear();
  Printed([&] { EXPECT_TRUE(sensor().SetROI(0, 0, 2048, 536)); });
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_HEIGHT), 536u);
  EXPECT_EQ(Get(fpga::kReg.ISP_CTRL) & 3, 2u);
}

TEST_F(E2v, OtherModesAreRefusedAndRecorded) {
  for (const unsigned mode : {0x22u, 0x01u, 0x10u, 0xFFu}) {
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(ReadoutDriveMode{mode})); }),
              "E2vFlash4k::SetReadoutDriveModeImpl invalid param\n");
    EXPECT_EQ(sensor().read_out_drive_mode(), mode);
  }
  EXPECT_EQ(sensor().roi_height(), 1080u);
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(E2v, TheModeTellsWhatFailed) {
  const std::string reduction = "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0031 failed!\n";
  const std::string control = "E2vFlash4k::SetReadoutDriveModeImpl Write 0x0023 failed!\n";
  const auto enter = [&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode00)); };
  FailWrite(0);
  EXPECT_EQ(Told(enter), reduction);
  FailWrite(1);
  EXPECT_EQ(Told(enter), control);
  FailRead(0);
  EXPECT_EQ(Told(enter), reduction);
  FailRead(1);
  EXPECT_EQ(Told(enter), control);
  FailWrite(2);
  EXPECT_TRUE(
      Told(enter).ends_with("E2vFlash4k::SetROIImpl Write 0x0034 failed!\n"
                            "E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n"));
}

TEST_F(E2v, TheDirectionIsBitTwo) {
  SetChip(0x0023, 0x1230);
  EXPECT_TRUE(sensor().SetReadoutDriveDirection(kVerticalFlip));
  EXPECT_TRUE(sensor().SetReadoutDriveDirection(kNormal));
  EXPECT_THAT(Programming(), ElementsAre("0023 ?", "0023 = 1234", "0023 ?", "0023 = 1230"));
}

TEST_F(E2v, ColumnsCannotBeReversed) {
  for (const auto direction : {kHorizontalFlip, kBothFlip}) {
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveDirection(direction)); }),
              "E2vFlash4k::SetReadoutDriveDirectionImpl Flipping horizontally is not supported!\n");
    EXPECT_EQ(sensor().read_out_drive_direction(), direction);
  }
  EXPECT_EQ(
      Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveDirection(ReadoutDriveDirection{4})); }),
      "E2vFlash4k::SetReadoutDriveDirectionImpl invalid parameter\n");
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(E2v, ADirectionThatCannotBeReadIsLeftAloneAndCountsAsDone) {
  FailRead(0);
  EXPECT_EQ(Told([&] { EXPECT_TRUE(sensor().SetReadoutDriveDirection(kVerticalFlip)); }), "");
  EXPECT_THAT(Accesses(), ElementsAre("failed"));
}

TEST_F(E2v, ADirectionThatCannotBeWrittenIsTold) {
  FailWrite(0);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().SetReadoutDriveDirection(kVerticalFlip)); }),
            "E2vFlash4k::SetReadoutDriveDirectionImpl Write 0x0023 failed!\n");
}

// --- Gain, blanking, delays ----------------------------------------------------------------

TEST_F(E2v, AnyGainHasAList) {
  for (const unsigned gain : {0u, 1u, 2u, 3u, 4u, 1000u}) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(sensor().SetGain(gain));
    EXPECT_THAT(Programming(), ElementsAreArray(kPlaceholderList));
  }
  FailWrite(3);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().SetGain(1)); }),
            "E2vFlash4k::BatchWriteRegister Write 95 failed!\n");
}

TEST_F(E2v, BlankingSetsTheLineAndTheLaser) {
  EXPECT_TRUE(sensor().ModifyHorizontalBlanking(1));
  EXPECT_THAT(Programming(),
              ElementsAre("0021 = 0080", "009F = 0081", "00A0 = 0081", "00A1 = 0081", "00A2 = 0081",
                          "00A3 = 0081", "00A4 = 0081", "0074 = 0183",
                          "LASER_OFFSET_TIME = 0x00000190", "EXP_DELAY = 0x00002330"));
}

TEST_F(E2v, BlankingWrapsAtSixteenBits) {
  EXPECT_TRUE(sensor().ModifyHorizontalBlanking(0xFFFF));
  const Lines steps = Programming();
  EXPECT_EQ(steps[0], "0021 = 007E");
  EXPECT_EQ(steps[1], "009F = 007F");
  EXPECT_EQ(steps[7], "0074 = 017D");
}

TEST_F(E2v, ABlankingThatFailedIsNotRemembered) {
  const unsigned before = sensor().GetCameraDelay();
  FailWrite(7);
  Printed([&] { EXPECT_FALSE(sensor().ModifyHorizontalBlanking(1)); });
  EXPECT_EQ(sensor().GetCameraDelay(), before);
}

struct Delay {
  unsigned short blanking;
  unsigned height;
  unsigned delay;
};
// L = blanking + 128: (height + 16) x L / 16, 1.5 x L / 4, 3 x L / 4, and 28.
constexpr Delay kDelays[]{{256, 1080, 26304 + 144 + 288 + 28},
                          {1, 1080, 8836 + 48 + 96 + 28},
                          {256, 8, 576 + 144 + 288 + 28},
                          {3, 8, 196 + 49 + 98 + 28}};

TEST_F(E2v, TheCameraDelayFollowsBlankingAndHeight) {
  for (const auto& [blanking, height, delay] : kDelays) {
    Printed([&, blanking = blanking, height = height] {
      ASSERT_TRUE(sensor().ModifyHorizontalBlanking(blanking));
      ASSERT_TRUE(sensor().SetROI(0, 0, 64, height));
    });
    EXPECT_EQ(sensor().GetCameraDelay(), delay) << blanking;
  }
  EnterSensing();
  EXPECT_EQ(sensor().GetCameraDelay(), 0u);
}

TEST_F(E2v, LineTimingCanBePutBack) {
  Set(fpga::kReg.SENSOR_TIMING, 0x0007FFFF);
  EXPECT_TRUE(sensor().ResetTgesAndVtr());
  EXPECT_THAT(Programming(), ElementsAre("SENSOR_TIMING = 0x0007001c", "EXP_DELAY = 0x0000688c"));
}

// --- Through the exported functions --------------------------------------------------------

TEST_F(E2v, TheOtherSensorsControlsDoNothing) {
  SetHDRParam24(0.5, 0.25, 0);
  SetFpgaContinuous(1);
  EXPECT_THAT(Programming(), IsEmpty());
}

TEST_F(E2v, CollectModesChangeTheBlanking) {
  EXPECT_EQ(SetCollectMode(0), 0);
  EXPECT_EQ(Accesses().front(), "0021 = 0080");
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetCollectMode(1), 0);
  EXPECT_EQ(Accesses().front(), "0021 = 017F");
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetCollectMode(2), -1);
  EXPECT_THAT(Accesses(), IsEmpty());
}

// --- With the capture threads running ------------------------------------------------------

class RunningE2v : public E2vSensorTest {
 protected:
  void SetUp() override {
    E2vSensorTest::SetUp();
    Printed([] { ASSERT_EQ(RegisterHardwareInit(), 0); });
    tessaline_board_transcript_clear();
  }
};

TEST_F(RunningE2v, VideoFormatFollowsTheRegion) {
  Printed([] {
    EXPECT_EQ(SetROI1(64, 8, 4032, 1072), 0);
    EXPECT_EQ(SetROI1(0, 0, 64, 8), 0);
    EXPECT_EQ(SetDriveMode(0x00), 0);
    // The call is rejected, and the format does not change.
    EXPECT_EQ(SetDriveMode(0x11), -1);
    EXPECT_EQ(SetROI1(32, 0, 64, 8), -1);
  });
  EXPECT_THAT(FormatsAsked(), ElementsAre("4032x1072", "64x8", "4096x1080"));
}

TEST_F(RunningE2v, ARegionAsksForItsFormatLast) {
  const Lines steps{"ISP_WIDTH",         "ISP_HEIGHT",         "ISP_CTRL",
                    "STRIP_IMAGE_WIDTH", "STRIP_IMAGE_HEIGHT", "STRIP_SELECTOR_IMAGE_WIDTH",
                    "EXP_DELAY",         "VIDIOC_TRY_FMT"};
  Printed([] { EXPECT_TRUE(sensor().SetROI(0, 0, 640, 480)); });
  EXPECT_THAT(OrderOf(steps), ElementsAreArray(steps));
}

}  // namespace
}  // namespace VeltranoSDK
