// Initialisation and reset of the GSPRINT6502BSI on a K3910 board, and its tables.
#include <algorithm>

#include "Devices/sensor/SensorTable.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"
#include "Devices/sensor/gsprint6502bsi/GsprintTest.h"
#include "sensor_tables/GsprintGain.h"
#include "sensor_tables/GsprintRecommended.h"
#include "support/LoggedLines.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::LoggedLines;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using GsprintInit = GsprintTest;

// The recommended settings as long as they have not been supplied.
Lines Recommended() {
  Lines writes(496, "00A0 = 01");
  writes[1] = "00A1 = 01";
  writes[2] = "00A2 = 01";
  writes[3] = "00A3 = 01";
  return writes;
}

const Lines kStreamOff{"0000 ?", "0000 = 00", "2400 ?", "2400 = 00", "sleep 10000"};
const Lines kStreamOn{"0000 ?", "0000 = 01", "2400 ?", "2400 = 10", "sleep 10000"};
const Lines kStartTiming{"CMOS_TIMING_CTRL = 0x00000000", "sleep 10000",
                         "CMOS_TIMING_CTRL = 0x00000004", "sleep 2000",
                         "CMOS_TIMING_CTRL = 0x00000005"};

const Lines kReset = kStreamOff + Recommended() + Lines{"sleep 10000"} + kStreamOn +
                     Lines{"1C00 ?", "1C00 = 01", "sleep 100000"} + kStartTiming;

const Lines kSlowLines{"0080 = 68", "0081 ?", "0081 = 01", "SENSOR_TIMING = 0x00000014"};

const Lines kInitialisation =
    Lines{"SENSOR_TIMING = 0x00000014", "POLARITY = 0x00000004", "POLARITY = 0x00000005"} + kReset +
    kSlowLines;

// --- Initialisation ------------------------------------------------------------------------

TEST_F(GsprintInit, ProgramsChipAndFpgaInThisOrder) {
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00)); }),
            "GSPRINT6502BSI init successful\n");
  EXPECT_THAT(Programming(), ElementsAreArray(kInitialisation));
}

TEST_F(GsprintInit, TheModeItStartsInIsNotUsed) {
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode11)); });
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode00);
  EXPECT_EQ(Chip(0x0110), 0);
}

TEST_F(GsprintInit, InitialisationUsesTheLineTimeInEffect) {
  ASSERT_TRUE(sensor().SetLineTime(true));
  tessaline_board_transcript_clear();
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00)); });
  EXPECT_EQ(Programming().front(), "SENSOR_TIMING = 0x00000004");
  EXPECT_EQ(Programming().back(), "SENSOR_TIMING = 0x00000014");
}

TEST_F(GsprintInit, TheRecommendedSettingsOpenTheBusOnce) {
  EXPECT_TRUE(sensor().RecommandedRegisterSetting());
  EXPECT_THAT(Programming(), ElementsAreArray(Recommended()));
  const Lines events = EventsOf("spi1.0");
  EXPECT_EQ(std::count(events.begin(), events.end(), "SPI_IOC_WR_MODE 0"), 1);
}

TEST_F(GsprintInit, StepsOfTheResetKeepOtherBits) {
  SetChip(0x0000, 0xA4);
  SetChip(0x2400, 0x8F);
  SetChip(0x1C00, 0xFE);
  EXPECT_TRUE(sensor().StreamEn(true));
  EXPECT_TRUE(sensor().InternalSerClkEn(true));
  EXPECT_TRUE(sensor().PmuUpDownCtrl(true));
  EXPECT_TRUE(sensor().StreamEn(false));
  EXPECT_TRUE(sensor().InternalSerClkEn(false));
  EXPECT_TRUE(sensor().PmuUpDownCtrl(false));
  EXPECT_THAT(Programming(),
              ElementsAre("0000 ?", "0000 = A5", "2400 ?", "2400 = 9F", "sleep 10000", "1C00 ?",
                          "1C00 = FF", "sleep 100000", "0000 ?", "0000 = A4", "2400 ?", "2400 = 8F",
                          "sleep 10000", "1C00 ?", "1C00 = FE", "sleep 100000"));
}

TEST_F(GsprintInit, WithoutAnFpgaNothingIsDone) {
  const auto kept = devices().cmos_sensor_;
  devices().fpga_logic_.reset();
  const LoggedLines logged(TESSALINE_LOG_ERROR);
  EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00));
  EXPECT_FALSE(sensor().Reset());
  EXPECT_FALSE(sensor().ResetAndInitialize());
  EXPECT_FALSE(sensor().SetLineTime(true));
  EXPECT_FALSE(sensor().SetROI(0, 0, 32, 2));
  EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode00));
  EXPECT_THAT(Accesses(), IsEmpty());
  EXPECT_EQ(logged.Take().size(), 6u);
}

TEST_F(GsprintInit, ADeadBusIsNotNoticed) {
  tessaline_board_fault("spi1.0", "*", 0, 0, EIO);
  EXPECT_THAT(Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00)); }),
              ::testing::EndsWith("SpiDev::Open error! spidev_name:/dev/spidev1.0\n"
                                  "GSPRINT6502BSI init successful\n"));
}

// --- Reset with the user's settings --------------------------------------------------------

// An edge of the reset line.
const Lines kCameraReset{"CMOS_WORK_MODE = 0x00000001", "sleep 50000"};

// 0x00 sets the whole region, so the user's region follows the mode.
const Lines kEveryPixel{"0110 ?",
                        "0110 = 00",
                        "0111 = 00",
                        "0196 ?",
                        "0196 = 00",
                        "0130 = 80",
                        "0131 = 04",
                        "0140 = 04",
                        "0141 = 00",
                        "00B2 = 80",
                        "00B3 = 04",
                        "ISP_WIDTH = 0x00000000",
                        "ISP_HEIGHT = 0x00000040",
                        "ISP_CTRL = 0x00000001",
                        "STRIP_IMAGE_WIDTH = 0x00000800",
                        "STRIP_IMAGE_HEIGHT = 0x00000480",
                        "IMG_FILTER_WIDTH = 0x00000800",
                        "IMG_FILTER_HEIGHT = 0x00000480",
                        "IMG_FILTER_THRS = 0x00000000",
                        "sleep 1000",
                        "IMG_FILTER_THRS = 0x00010000",
                        "STRIP_SELECTOR_IMAGE_WIDTH = 0x00000800",
                        "ISP_HEIGHT = 0x00048040",
                        "EXP_DELAY = 0x00000b7c",
                        "ROI_OFFSET = 0x00000000"};
const Lines kUsersRegion{"0130 = 14",
                         "0131 = 00",
                         "0140 = 0E",
                         "0141 = 00",
                         "00B2 = 14",
                         "00B3 = 00",
                         "ISP_WIDTH = 0x00000001",
                         "ISP_HEIGHT = 0x00000002",
                         "ISP_CTRL = 0x00000001",
                         "STRIP_IMAGE_WIDTH = 0x00000040",
                         "STRIP_IMAGE_HEIGHT = 0x00000014",
                         "IMG_FILTER_WIDTH = 0x00000040",
                         "IMG_FILTER_HEIGHT = 0x00000014",
                         "IMG_FILTER_THRS = 0x00000000",
                         "sleep 1000",
                         "IMG_FILTER_THRS = 0x00010000",
                         "STRIP_SELECTOR_IMAGE_WIDTH = 0x00000040",
                         "ISP_HEIGHT = 0x00001402",
                         "EXP_DELAY = 0x0000006e"};

TEST_F(GsprintInit, ResetRestoresTheUsersSettings) {
  ASSERT_TRUE(sensor().SetReadoutDriveDirection(kBothFlip));
  ASSERT_TRUE(sensor().SetROI(32, 10, 64, 20));
  ASSERT_TRUE(sensor().SetGain(2));
  ASSERT_TRUE(sensor().SetLineTime(true));
  tessaline_board_transcript_clear();
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().ResetAndInitialize()); }),
            "GSPRINT6502BSI init successful\n");
  Lines initialisation = kInitialisation;
  initialisation.front() = "SENSOR_TIMING = 0x00000004";  // fast lines, until the reset
  EXPECT_THAT(Programming(), ElementsAreArray(kCameraReset + initialisation + kEveryPixel +
                                              kUsersRegion + kFirstGain));
  EXPECT_EQ(sensor().roi_x(), 32u);
  EXPECT_EQ(sensor().roi_y(), 10u);
  EXPECT_EQ(sensor().roi_width(), 64u);
  EXPECT_EQ(sensor().roi_height(), 20u);
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode00);
  EXPECT_EQ(sensor().read_out_drive_direction(), kBothFlip);
}

// A mode that the sensor does not know is stored, too.
TEST_F(GsprintInit, ResetInAnUnknownModeFailsButSetsTheGain) {
  Printed([] { sensor().SetReadoutDriveMode(kDriveMode22); });
  tessaline_board_transcript_clear();
  log_set_quiet(true);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().ResetAndInitialize()); }),
            "GSPRINT6502BSI init successful\nSetDriveMode invalid parameter\n"
            "GSPRINT6502BSI::ResetAndInitialize() error.\n");
  EXPECT_THAT(Programming(), ElementsAreArray(kCameraReset + kInitialisation + kFirstGain));
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode22);
}

TEST_F(GsprintInit, ResetInHalvedReadoutFailsOnTheRegion) {
  ASSERT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11));
  log_set_quiet(true);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().ResetAndInitialize()); }),
            "GSPRINT6502BSI init successful\nGSPRINT6502BSI::ResetAndInitialize() error.\n");
  EXPECT_EQ(Chip(0x0111), 1);
}

// --- Tables --------------------------------------------------------------------------------

TEST(GsprintTables, RecommendedSettingsAre496WithFourKnown) {
  EXPECT_EQ(gsprint::kRecommendedSettings.size(), 496u);
  EXPECT_EQ(CountPlaceholders(gsprint::kRecommendedSettings), 492u);
  for (const auto& entry : gsprint::kRecommendedSettings) {
    EXPECT_GE(entry.address, 0x00A0);
    EXPECT_LE(entry.address, 0x00A3);
    EXPECT_EQ(entry.value, 0x01);
  }
}

TEST(GsprintTables, FirstOfFourGainRowsIsKnown) {
  EXPECT_EQ(gsprint::kGainRows.size(), 4u);
  EXPECT_FALSE(gsprint::kGainRows[0].placeholder);
  EXPECT_EQ(CountPlaceholders(gsprint::kGainRows), 3u);
  EXPECT_THAT(gsprint::kGainRows[0].values, ElementsAre(1, 1, 0x11, 0x11, 3, 5));
}

}  // namespace
}  // namespace VeltranoSDK
