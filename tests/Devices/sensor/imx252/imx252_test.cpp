// The IMX252 driver on a K3710 board: what it writes to the chip and to the FPGA, in which order,
// and what it prints if the bus fails.
#include <bit>

#include "Devices/sensor/imx252/Imx252Fixture.h"
#include "SeriesLogic/SeriesLogic.h"
#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Not;

// --- Construction and queries --------------------------------------------------------------

TEST_F(Imx252, KnowsItsModelAndSize) {
  EXPECT_EQ(sensor().model(), kIMX252);
  EXPECT_EQ(sensor().resolution(), std::pair(2064u, 1544u));
  EXPECT_EQ(sensor().roi_width(), 2064u);
  EXPECT_EQ(sensor().roi_height(), 1544u);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Imx252, IsAtItsOwnAddress) {
  sensor().SetGain(1);
  EXPECT_THAT(EventsOf("i2c-0").back(), I2cWrite(0x10, "32 04 0a"));
}

TEST_F(Imx252, CameraDelayFollowsTheRegionsHeight) {
  EXPECT_EQ(sensor().GetCameraDelay(), 1585u);
  Printed([&] { sensor().SetROI(8, 4, 100, 200); });
  EXPECT_EQ(sensor().GetCameraDelay(), 241u);
}

TEST_F(Imx252, ExposureUnitIsShorterInMode11Only) {
  const auto unit = [&] { return std::bit_cast<unsigned>(sensor().GetExposureTimeUnit()); };
  EXPECT_EQ(unit(), 0x40859A4Au);
  Enter(kDriveMode11);
  EXPECT_EQ(unit(), 0x403BE7DEu);
  Enter(kDriveMode22);
  EXPECT_EQ(unit(), 0x40859A4Au);
  Printed([&] { sensor().SetReadoutDriveMode(ReadoutDriveMode{0x33}); });
  EXPECT_EQ(unit(), 0x40859A4Au);
}

struct MaxFrameRow {
  unsigned mode, over_8_channels, over_16_channels;
};
constexpr MaxFrameRow kMaxFrames[]{
    {0x00, 0x0136260D, 0x00D9260D},
    {0x11, 0x00DA260D, 0x00D9260D},
    {0x22, 0x0136260D, 0x00D9260D},
};

TEST_F(Imx252, MaxFrameValueByModeAndChannels) {
  for (const MaxFrameRow& row : kMaxFrames) {
    Enter(static_cast<ReadoutDriveMode>(row.mode));
    EXPECT_EQ(sensor().TransferMaxFrameValue(), row.over_8_channels);
    sensor().SetCh16Mode(1);
    EXPECT_EQ(sensor().TransferMaxFrameValue(), row.over_16_channels);
    // Only 1 selects the 16 channels.
    sensor().SetCh16Mode(2);
    EXPECT_EQ(sensor().TransferMaxFrameValue(), row.over_8_channels);
  }
  for (const unsigned channels : {0u, 1u}) {
    sensor().SetCh16Mode(channels);
    Printed([&] { sensor().SetReadoutDriveMode(ReadoutDriveMode{0x33}); });
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().TransferMaxFrameValue(), 0xFFFFFFFFu); }),
              "IMX252::TransferMaxFrameValue()\n");
  }
}

// --- Gain, temperature, identification, flip -----------------------------------------------

TEST_F(Imx252, GainIsClampedTo48AndWrittenInTenths) {
  SetChip(0x3205, 0x54);
  EXPECT_TRUE(sensor().SetGain(60));
  EXPECT_THAT(Programming(), ElementsAre("3205 ?", "3205 = 55", "3204 = E0"));
}

TEST_F(Imx252, GainSaysWhichHalfFailed) {
  FailEveryWrite([&] { return sensor().SetGain(10); },
                 [](const std::string& reg, int) {
                   return "0x" + reg + " write SetGain Abnormal communication\n";
                 });
}

TEST_F(Imx252, TemperatureIsLatchedReadAndReleased) {
  SetChip(0x301E, 0x34);
  SetChip(0x301F, 0xFE);
  EXPECT_EQ(sensor().GetSensorTemp(), 0x234u);
  EXPECT_THAT(Programming(), ElementsAre("301D = 01", "301E ?", "301F ?", "301D = 00"));
}

TEST_F(Imx252, TemperatureWithoutLatchIsAllOnes) {
  FailAccess(0);
  unsigned code = 0;
  EXPECT_EQ(Printed([&] { code = sensor().GetSensorTemp(); }),
            "0x301D GetSensorTemp Abnormal communication\n");
  EXPECT_EQ(code, 0xFFFFFFFFu);
}

TEST_F(Imx252, Versions) {
  const auto told = [&](unsigned kind) {
    unsigned version = 0;
    EXPECT_EQ(Printed([&] { version = sensor().GetSensorVer(kind); }),
              "GetSensorVer Type succeffful!\n");
    return version;
  };
  // The real chip's type and monochrome mark.
  EXPECT_EQ(told(0), 252u);
  EXPECT_EQ(told(1), 1u);
  SetChip(0x3148, 0x7F);
  SetChip(0x3149, 0x55);
  EXPECT_EQ(told(0), 0x155u);
  EXPECT_EQ(told(1), 0u);
}

TEST_F(Imx252, OtherVersionKindsHaveAResultOfTheirOwn) {
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetSensorVer(2), 0xFFFFFFFEu); }),
            "GetSensorVer invalid parameter\n");
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(Imx252, FlipKeepsTheBitsAboveIt) {
  SetChip(0x300E, 0xA7);
  EXPECT_TRUE(sensor().SetReadoutDriveDirection(kHorizontalFlip));
  EXPECT_THAT(Programming(), ElementsAre("300E ?", "300E = A6"));
}

TEST_F(Imx252, FailedFlipSpeaksOfARead) {
  FailAccess(1);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveDirection(kBothFlip)); }),
            "0x300E read SetReverseMode Abnormal communication\n");
}

TEST_F(Imx252, WithoutAnFpgaNothingIsProgrammed) {
  const tessaline_test::LoggedErrors errors;
  devices().fpga_logic_.reset();
  EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00));
  EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode00));
  EXPECT_FALSE(sensor().SetROI(8, 4, 100, 100));
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }), "");
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_GE(errors.lines().size(), 4u);
}

// --- Mode switch ---------------------------------------------------------------------------

const Lines kStopTiming{"sleep 100", Timing(4), "sleep 1000"};

Lines Region(unsigned height) {
  const unsigned lines = height + 38;
  char text[4][12];
  snprintf(text[0], sizeof text[0], "3316 = %02X", height & 0xFF);
  snprintf(text[1], sizeof text[1], "3317 = %02X", height >> 8 & 0xFF);
  snprintf(text[2], sizeof text[2], "3010 = %02X", lines & 0xFF);
  snprintf(text[3], sizeof text[3], "3011 = %02X", lines >> 8 & 0xFF);
  return Lines{"3310 = 08", "3311 ?",    "3311 = 00", "3312 = 04", "3313 ?",
               "3313 = 00", "3314 = 00", "3315 ?",    "3315 = 08", text[0],
               "3317 ?",    text[1],     text[2],     text[3]} +
         ImageSize(2048, height) + Lines{Delay(height), "sleep 100000"};
}

Lines SwitchedOn(unsigned row_time) {
  return {"3000 = 00",  "sleep 2000",      "sleep 2500", Timing(0),
          "sleep 1000", Timing(4),         "sleep 3000", Timing(5),
          "sleep 1000", RowTime(row_time), DriveCode(0), "sleep 100000"};
}

struct ChannelRow {
  unsigned ch16;
  Lines line;
  unsigned row_time;
};
const ChannelRow kChannels[]{
    {0, {"3014 = 36", "3015 = 01"}, 309},
    {1, {"3014 = D9", "3015 = 00"}, 216},
};

TEST_F(Imx252, SwitchesToAllPixels) {
  for (const ChannelRow& row : kChannels) {
    PowerUp();
    sensor().SetCh16Mode(row.ch16);
    Set(fpga::kReg.SENSOR_TIMING, 16);
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode00)); }),
              "entern setroi\n");
    EXPECT_THAT(Programming(),
                ElementsAreArray(kStopTiming + Lines{"3000 = 01", "300D = 00", "3300 = 03"} +
                                 Region(1536) + row.line + SwitchedOn(row.row_time)));
    EXPECT_EQ(sensor().roi_x(), 8u);
    EXPECT_EQ(sensor().roi_y(), 4u);
    EXPECT_EQ(sensor().roi_width(), 2048u);
    EXPECT_EQ(sensor().roi_height(), 1536u);
  }
}

TEST_F(Imx252, BothReducedModesHalveTheRows) {
  for (const ChannelRow& row : kChannels) {
    for (const ReadoutDriveMode mode : {kDriveMode11, kDriveMode22}) {
      PowerUp();
      sensor().SetCh16Mode(row.ch16);
      Set(fpga::kReg.SENSOR_TIMING, 16);
      EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(mode)); }),
                "entern setroi\n");
      EXPECT_THAT(Programming(),
                  ElementsAreArray(
                      kStopTiming + Lines{"300A = 01", "sleep 1000", "3000 = 01", "3300 = 03"} +
                      Region(768) + row.line + Lines{"300D = 02"} + SwitchedOn(row.row_time)));
      EXPECT_EQ(sensor().read_out_drive_mode(), mode);
      EXPECT_EQ(sensor().roi_width(), 2048u);
      EXPECT_EQ(sensor().roi_height(), 768u);
    }
  }
}

TEST_F(Imx252, RefusesAnUnknownModeButRecordsIt) {
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(ReadoutDriveMode{0x33})); }),
            "SetDriveMode invalid parameter\n");
  EXPECT_EQ(sensor().read_out_drive_mode(), ReadoutDriveMode{0x33});
  EXPECT_EQ(sensor().roi_width(), 2064u);
  EXPECT_THAT(Events(), IsEmpty());
}

// `readout` is the text for the readout mode's register, which differs between the switches.
auto ModeError(const std::string& readout) {
  return [readout](const std::string& reg, int time) -> std::string {
    const bool before_region = reg == "300A" || reg == "3300" || (reg == "3000" && time == 0) ||
                               (reg == "300D" && readout.starts_with("0x"));
    const std::string so_far = before_region ? "" : "entern setroi\n";
    if (reg == "3000") {
      return so_far +
             (time == 0 ? "Fail to enter standby mode\n" : "Failed to exit standby mode\n");
    }
    if (reg == "300A") return "Fail to stop master mode\n";
    if (reg == "300D") return so_far + readout;
    if (reg == "3300" || reg == "3014" || reg == "3015") return so_far + InitError(reg, 0);
    return so_far + "set roi error 0x" + reg + "\n";
  };
}

TEST_F(Imx252, EveryFailureOfAFullSwitchHasItsText) {
  FailEveryWrite([&] { return sensor().SetReadoutDriveMode(kDriveMode00); },
                 ModeError("0x300D write SetDriveMode Abnormal communication\n"));
}

TEST_F(Imx252, EveryFailureOfAReducedSwitchHasItsText) {
  for (const ReadoutDriveMode mode : {kDriveMode11, kDriveMode22}) {
    FailEveryWrite([&] { return sensor().SetReadoutDriveMode(mode); },
                   ModeError("252 init error 0x300D\n"));
  }
}

// --- Region of interest --------------------------------------------------------------------

TEST_F(Imx252, ProgramsARegionAndKeepsTheBitsAboveIt) {
  for (const unsigned high : {0x3311u, 0x3313u, 0x3315u, 0x3317u}) SetChip(high, 0xFF);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(0x1234, 0x5678, 0x2345, 0x1EF)); }),
            "entern setroi\n");
  EXPECT_THAT(Programming(),
              ElementsAreArray(Lines{"3310 = 34", "3311 ?", "3311 = F2", "3312 = 78", "3313 ?",
                                     "3313 = F6", "3314 = 45", "3315 ?", "3315 = E3", "3316 = EF",
                                     "3317 ?", "3317 = F1", "3010 = 15", "3011 = 02"} +
                               ImageSize(0x2345, 0x1EF) + Lines{Delay(0x1EF), "sleep 100000"}));
}

TEST_F(Imx252, RegionsAreTakenInEveryMode) {
  for (const unsigned mode : {0x00u, 0x11u, 0x22u, 0x33u}) {
    Printed([&] { sensor().SetReadoutDriveMode(static_cast<ReadoutDriveMode>(mode)); });
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(8, 4, 5000, 5000)); }), "entern setroi\n");
  }
}

struct MarginRow {
  unsigned ch16, x, y;
  const char* printed;
};
constexpr MarginRow kMargins[]{
    {0, 8, 4, "entern setroi\n"},
    {0, 7, 4, "IMX252::SetROIImpl error left:7, top:4\nentern setroi\n"},
    {0, 8, 3, "IMX252::SetROIImpl error left:8, top:3\nentern setroi\n"},
    {0, 0, 0, "IMX252::SetROIImpl error left:0, top:0\nentern setroi\n"},
    {1, 0, 0, "entern setroi\n"},
    {2, 0, 0, "entern setroi\n"},
};

TEST_F(Imx252, ARegionInTheMarginIsWarnedOfAndProgrammed) {
  for (const MarginRow& row : kMargins) {
    sensor().SetCh16Mode(row.ch16);
    tessaline_board_transcript_clear();
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(row.x, row.y, 2048, 1536)); }),
              row.printed);
    EXPECT_EQ(Chip(0x3310), static_cast<int>(row.x));
    EXPECT_EQ(Chip(0x3312), static_cast<int>(row.y));
    EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_HEIGHT), 1536u);
  }
}

TEST_F(Imx252, EveryFailureOfARegionNamesItsRegister) {
  FailEveryWrite(
      [&] { return sensor().SetROI(8, 4, 2048, 1536); },
      [](const std::string& reg, int) { return "entern setroi\nset roi error 0x" + reg + "\n"; });
}

TEST_F(Imx252, TheStripSelectorFollowsTheWidthWhereTheSeriesWantsIt) {
  sensor().SetStripWidthFollow(true);
  Printed([&] { EXPECT_TRUE(sensor().SetROI(8, 4, 0x12345, 100)); });
  const Lines steps = Programming();
  const auto image = std::find(steps.begin(), steps.end(), ImageSize(0x12345, 100).front());
  ASSERT_NE(image, steps.end());
  EXPECT_EQ(*(image - 2), "3011 = 00");
  EXPECT_EQ(*(image - 1), Fpga(fpga::kReg.STRIP_SELECTOR_IMAGE_WIDTH, 0x2345));
}

// --- With the capture threads running ------------------------------------------------------

struct RunningImx252 : Imx252 {
  void SetUp() override {
    Imx252::SetUp();
    Printed([] { ASSERT_EQ(RegisterHardwareInit(), 0); });
    tessaline_board_transcript_clear();
  }
};

TEST_F(RunningImx252, VideoFormatFollowsRegionAndMode) {
  Printed([] {
    sensor().SetROI(8, 4, 640, 480);
    sensor().SetReadoutDriveMode(kDriveMode11);
    sensor().SetReadoutDriveMode(kDriveMode00);
    sensor().SetReadoutDriveMode(kDriveMode22);
  });
  EXPECT_THAT(FormatsAsked(), ElementsAre("640x480", "2048x768", "2048x1536", "2048x768"));
}

TEST_F(RunningImx252, ARegionAsksForItsFormatBeforeTheLastPause) {
  const Lines steps{"STRIP_IMAGE_HEIGHT", "EXP_DELAY", "VIDIOC_TRY_FMT", "sleep 100000"};
  Printed([] { EXPECT_TRUE(sensor().SetROI(8, 4, 640, 480)); });
  EXPECT_THAT(OrderOf(steps), ElementsAreArray(steps));
}

// --- Use by the series ---------------------------------------------------------------------

struct Imx252ch16 : Imx252 {
  explicit Imx252ch16(const char* model = "K3710ch16", SeriesNumber series = kSeries22ch16)
      : Imx252(model, series) {}

  // A new region writes the selector's register.
  bool StripWidthFollows() {
    tessaline_board_transcript_clear();
    Printed([&] { sensor().SetROI(8, 4, 100, 100); });
    const Lines steps = Programming();
    return std::find(steps.begin(), steps.end(),
                     Fpga(fpga::kReg.STRIP_SELECTOR_IMAGE_WIDTH, 100)) != steps.end();
  }
};
struct Imx252ch16Arm : Imx252ch16 {
  Imx252ch16Arm() : Imx252ch16("K3710ch16arm_rebuild", kSeries22ch16Arm) {}
};

TEST_F(Imx252ch16, TheSeriesSetsThe16ChannelsBeforeTheSensorIsProgrammed) {
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x0136260Du);
  SeriesLogicFactory::GetSeriesLogicInstance()->Notify(kTriggerConfigured);
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x00D9260Du);
  EXPECT_FALSE(StripWidthFollows());
}

TEST_F(Imx252ch16Arm, TheSeriesSetsThe16ChannelsAndTheStripWidth) {
  SeriesLogicFactory::GetSeriesLogicInstance()->Notify(kTriggerConfigured);
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x00D9260Du);
  EXPECT_TRUE(StripWidthFollows());
}

}  // namespace
}  // namespace VeltranoSDK
