// The GMAX2509 driver on the boards that have the sensor: a K3820, and a K3810, which always runs
// subsampled.
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/gmax2509/GmaxTest.h"
#include "SeriesLogic/SeriesLogic.h"
#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Gmax2320 : Gmax {
  Gmax2320() : Gmax("K3810", kSeries2320) {}
};

// --- Construction and queries --------------------------------------------------------------

TEST_F(Gmax, TheSeriesSaysHowLargeItIs) {
  EXPECT_EQ(sensor().model(), kGMAX2509);
  EXPECT_EQ(sensor().resolution(), std::pair(4200u, 2048u));
  EXPECT_EQ(sensor().GetStripWidth(), 2048u);
  EXPECT_EQ(sensor().GetStripHeight(), 640u);
  EXPECT_EQ(sensor().GetStripBufferSize(), 1310720u);
  EXPECT_EQ(sensor().roi_width(), 4200u);
  EXPECT_EQ(sensor().roi_height(), 1024u) << "until somebody sets it";
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Gmax2320, TheSeriesSaysHowLargeItIs) {
  EXPECT_EQ(sensor().resolution(), std::pair(4200u, 1024u));
  EXPECT_EQ(sensor().roi_height(), 1024u);
}

struct Gmax2509Alone : DeviceTest {};

TEST_F(Gmax2509Alone, WithoutItsSeriesItKeepsTheSmallerSizeAndSaysSo) {
  const tessaline_test::LoggedErrors errors;
  GMAX2509 sensor;
  EXPECT_EQ(sensor.resolution(), std::pair(4200u, 1024u));
  EXPECT_THAT(errors.lines(), ElementsAre(HasSubstr("GMAX2509")));
}

TEST_F(Gmax, Constants) {
  EXPECT_EQ(sensor().GetExposureTimeUnit(), 1.5833334F);
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x00981508u);
  for (const unsigned kind : {0u, 1u, 2u, 1000u}) {
    EXPECT_EQ(sensor().GetSensorVer(kind), 0xFFFFFFFFu);
  }
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Gmax, TemperatureIsSixteenBits) {
  SetChip(0xC0, 0xB5);
  SetChip(0xC1, 0x9D);
  EXPECT_EQ(sensor().GetSensorTemp(), 0x9DB5u);
  EXPECT_THAT(Accesses(), ElementsAre("C0 ?", "C1 ?"));
}

TEST_F(Gmax, CameraDelayCountsLinesInUnitsOf152Clocks) {
  EXPECT_EQ(sensor().GetCameraDelay(), (1024u + 21) * 10);
  Printed([&] { sensor().SetROI(0, 0, 560, 100); });
  EXPECT_EQ(sensor().GetCameraDelay(), 1210u);
  Printed([&] { sensor().SetLineTime(12464); });
  EXPECT_EQ(sensor().GetCameraDelay(), 121u * 82);
  Printed([&] { sensor().SetLineTime(151); });
  EXPECT_EQ(sensor().GetCameraDelay(), 0u);
}

// --- Gain ----------------------------------------------------------------------------------

struct GainRow {
  unsigned asked;
  unsigned level;
};
constexpr GainRow kGains[]{{0, 1}, {1, 1}, {2, 2}, {5, 5}, {6, 5}, {9, 5}, {0xFFFFFFFF, 5}};

TEST_F(Gmax, GainIsClampedToOneToFive) {
  for (const GainRow& row : kGains) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(sensor().SetGain(row.asked));
    EXPECT_THAT(Programming(), ElementsAre(Byte(0xB5, 0x40 | row.level), Byte(0xB6, row.level)));
  }
}

// --- Direction -----------------------------------------------------------------------------

struct DirectionRow {
  ReadoutDriveDirection direction;
  unsigned old_columns, old_rows;
  Lines programming;
};
const DirectionRow kDirections[]{
    {kNormal, 0xFF, 0x81, {"01 ?", "01 = EF", "DE ?", "DE = C1", "13 = 04", "14 = 00"}},
    {kVerticalFlip, 0xFF, 0xFF, {"01 ?", "01 = EF", "DE ?", "DE = BF", "13 = 18", "14 = 00"}},
    {kHorizontalFlip, 0x81, 0x81, {"01 ?", "01 = 91", "DE ?", "DE = C1"}},
    {kBothFlip, 0x81, 0xFF, {"01 ?", "01 = 91", "DE ?", "DE = BF", "13 = 18", "14 = 00"}},
};

TEST_F(Gmax, DirectionsKeepTheBitsBesideThem) {
  for (const DirectionRow& row : kDirections) {
    SetChip(0x01, row.old_columns);
    SetChip(0xDE, row.old_rows);
    tessaline_board_transcript_clear();
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveDirection(row.direction)); }), "");
    EXPECT_THAT(Programming(), ElementsAreArray(row.programming)) << row.direction;
  }
}

TEST_F(Gmax, OtherDirectionsAreRefused) {
  EXPECT_EQ(
      Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveDirection(ReadoutDriveDirection{4})); }),
      "SetReverseMode invalid parameter\n");
  EXPECT_EQ(sensor().read_out_drive_direction(), ReadoutDriveDirection{4});
  EXPECT_THAT(Events(), IsEmpty());
}

// --- Initialisation ------------------------------------------------------------------------

// The writes of the table: computed values, the configuration's bits 6 to 13, placeholders.
Lines TableWrites(Lines computed) {
  computed.insert(computed.end(), {"C0 = F6", "C1 = F6"});
  computed.insert(computed.end(), 88, "13 = 04");
  return computed;
}

const Lines kTableAtPowerUp = TableWrites(
    {"12 = 00", "15 = 00", "16 = 04", "CE = 30", "D2 = A4", "A0 = F0", "A1 = 05", "B5 = 41"});

// The image and filter sizes of the FPGA, which counts 28 columns as 32.
Lines ImageSize(unsigned width, unsigned height) {
  return {Fpga(fpga::kReg.STRIP_IMAGE_WIDTH, width / 28 * 32),
          Fpga(fpga::kReg.STRIP_IMAGE_HEIGHT, height)};
}
Lines FilterSize(unsigned width, unsigned height) {
  return {Fpga(fpga::kReg.IMG_FILTER_WIDTH, width), Fpga(fpga::kReg.IMG_FILTER_HEIGHT, height),
          Fpga(fpga::kReg.IMG_FILTER_THRS, 0), "sleep 1000",
          Fpga(fpga::kReg.IMG_FILTER_THRS, 0x10000)};
}
// A readout that starts at a block of columns. 1: whole, 2: half.
Lines Readout(unsigned x, unsigned width, unsigned kind) {
  return {Fpga(fpga::kReg.ISP_WIDTH, x / 28), Fpga(fpga::kReg.ISP_HEIGHT, width / 28),
          Fpga(fpga::kReg.ISP_CTRL, kind)};
}
std::string Delay(unsigned height, unsigned line_units = 10) {
  return Fpga(fpga::kReg.EXP_DELAY, (height + 21) * line_units);
}
std::string DriveCode(unsigned code) { return Fpga(fpga::kReg.ROI_OFFSET, code << 25); }
std::string SensorTiming(unsigned t_ges, unsigned t_row) {
  return Fpga(fpga::kReg.SENSOR_TIMING, t_ges | t_row << 16);
}

struct Initialisation {
  Lines table = kTableAtPowerUp;
  unsigned t_ges = 80;
  unsigned t_row_before = 0;
  unsigned line_units = 10;
  unsigned width = 4200;
  unsigned height = 1024;
  unsigned drive_code = 0;
};

// Starts from a chip whose streaming and programming registers read zero.
Lines Initialised(const Initialisation& is) {
  return Lines{SensorTiming(is.t_ges, is.t_row_before),
               "POLARITY = 0x00000004",
               "POLARITY = 0x00000005",
               "00 ?",
               "00 = 00",
               "D0 ?",
               "D0 = 40"} +
         is.table + Lines{SensorTiming(is.t_ges, 151)} + Readout(0, is.width, 1) +
         Lines{"sleep 1500",
               "D0 ?",
               "D0 = 00",
               "sleep 6500",
               "00 ?",
               "00 = 02",
               Delay(is.height, is.line_units),
               DriveCode(is.drive_code)} +
         ImageSize(is.width, is.height) + FilterSize(is.width, is.height) +
         Lines{"sleep 1500", Timing(0), "sleep 10000", Timing(4),
               "sleep 2000", Timing(5), "sleep 10000"};
}

TEST_F(Gmax, InitialisesInThisOrder) {
  bool done = false;
  EXPECT_EQ(Printed([&] { done = sensor().RegisterInitialize(kDriveMode00); }),
            "2509 init successful\n");
  EXPECT_TRUE(done);
  EXPECT_THAT(Programming(), ElementsAreArray(Initialised({.drive_code = 0})));
}

TEST_F(Gmax, InitialisedForAnotherModeOnlyTheFpgaDiffers) {
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode11)); });
  EXPECT_THAT(Programming(), ElementsAreArray(Initialised({.drive_code = 3})));
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode00);
}

TEST_F(Gmax, StreamingAndProgrammingKeepTheBitsBesideThem) {
  SetChip(0x00, 0xFF);
  SetChip(0xD0, 0xFF);
  Printed([&] { sensor().RegisterInitialize(kDriveMode00); });
  Lines control;
  for (const std::string& access : Accesses()) {
    if (access.starts_with("00 = ") || access.starts_with("D0 = ")) control.push_back(access);
  }
  EXPECT_THAT(control, ElementsAre("00 = FD", "D0 = 4F", "D0 = 0F", "00 = FF"));
}

TEST_F(Gmax2320, InitialisesSubsampled) {
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00)); });
  Lines table = kTableAtPowerUp;
  table.front() = "12 = 01";
  EXPECT_THAT(Programming(), ElementsAreArray(Initialised({.table = table})));
}

// --- Region of interest --------------------------------------------------------------------

TEST_F(Gmax, TheSensorCropsRowsAndTheFpgaColumns) {
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(56, 0x1FE, 588, 0x234)); }), "");
  EXPECT_THAT(Programming(), ElementsAreArray(Lines{"13 = 02", "14 = 02", "15 = 34", "16 = 02"} +
                                              Readout(56, 588, 1) + ImageSize(588, 0x234) +
                                              FilterSize(588, 0x234) + Lines{Delay(0x234)}));
}

struct RegionRow {
  unsigned x, width;
  const char* printed;
};
constexpr RegionRow kRegions[]{
    {28, 560, ""},
    {0, 4200, ""},
    {3640, 560, ""},
    {0, 559, "value fail,width is 559,left is 0\n"},
    {0, 532, "value fail,width is 532,left is 0\n"},
    {0, 0, "value fail,width is 0,left is 0\n"},
    {14, 560, "value fail,width is 560,left is 14\n"},
    {0, 561, "value fail,width is 561,left is 0\n"},
    {3668, 560, "value fail,width is 560,left is 3668\n"},
    {28, 4200, "value fail,width is 4200,left is 28\n"},
    // The sum wraps around, but the region is still too wide.
    {0xFFFFFFFC, 560, "value fail,width is 560,left is -4\n"},
};

TEST_F(Gmax, RegionsAreWholeBlocksOnTheSensor) {
  for (const RegionRow& row : kRegions) {
    tessaline_board_transcript_clear();
    const bool fits = *row.printed == '\0';
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetROI(row.x, 5, row.width, 100), fits); }),
              row.printed);
    EXPECT_EQ(Events().empty(), !fits);
    EXPECT_EQ(sensor().roi_x(), row.x);
    EXPECT_EQ(sensor().roi_width(), row.width);
    EXPECT_EQ(sensor().roi_y(), 5u);
    EXPECT_EQ(sensor().roi_height(), 100u);
  }
}

TEST_F(Gmax, RegionsExistInMode00Only) {
  Printed([&] { ASSERT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11)); });
  tessaline_board_transcript_clear();
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetROI(0, 0, 560, 100)); }), "drive mode error\n");
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetROI(0, 0, 559, 100)); }),
            "value fail,width is 559,left is 0\n");
  EXPECT_THAT(Events(), IsEmpty());
}

// --- Drive modes ---------------------------------------------------------------------------

Lines FullMode(const char* subsampling, unsigned height) {
  return Lines{subsampling, "13 = 04", "14 = 00", Byte(0x15, height & 0xFF),
               Byte(0x16, height >> 8)} +
         Readout(0, 4200, 1) + ImageSize(4200, height) + FilterSize(4200, height) +
         Lines{Delay(height), DriveCode(0), "sleep 100"};
}

Lines HalfMode(unsigned height, unsigned drive_code) {
  return Lines{"13 = 04", "14 = 00", Byte(0x15, height & 0xFF), Byte(0x16, height >> 8),
               "12 = 01"} +
         Readout(0, 2100, 2) + ImageSize(2100, height) + FilterSize(2100, height) +
         Lines{Delay(height), DriveCode(drive_code), "sleep 100"};
}

TEST_F(Gmax, SwitchesToEveryRow) {
  Printed([&] { sensor().SetROI(28, 8, 560, 100); });
  tessaline_board_transcript_clear();
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode00)); }), "");
  EXPECT_THAT(Programming(), ElementsAreArray(FullMode("12 = 00", 2048)));
}

TEST_F(Gmax, SwitchesToHalfSize) {
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11)); }), "");
  EXPECT_THAT(Programming(), ElementsAreArray(HalfMode(1024, 3)));
  EXPECT_EQ(sensor().roi_width(), 2100u);
  EXPECT_EQ(sensor().roi_height(), 1024u);
}

TEST_F(Gmax2320, EveryRowMeansEveryRowOfTheSubsampledField) {
  Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode00)); });
  EXPECT_THAT(Programming(), ElementsAreArray(FullMode("12 = 01", 1024)));
}

TEST_F(Gmax2320, HalfSizeKeepsAllRows) {
  Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11)); });
  EXPECT_THAT(Programming(), ElementsAreArray(HalfMode(1024, 1)));
  EXPECT_EQ(sensor().roi_width(), 2100u);
  EXPECT_EQ(sensor().roi_height(), 1024u);
}

TEST_F(Gmax, OtherModesAreRefused) {
  for (const unsigned mode : {0x22u, 0x01u, 0x99u}) {
    const auto refused = static_cast<ReadoutDriveMode>(mode);
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(refused)); }),
              "SetDriveMode invalid parameter\n");
    EXPECT_EQ(sensor().read_out_drive_mode(), refused);
  }
  EXPECT_THAT(Events(), IsEmpty());
  EXPECT_EQ(sensor().roi_height(), 1024u);
}

TEST_F(Gmax2320, ARefusedModeStillResetsTheHeight) {
  Printed([&] {
    sensor().SetROI(0, 0, 560, 100);
    EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode22));
  });
  EXPECT_EQ(sensor().roi_height(), 1024u);
  EXPECT_EQ(sensor().roi_width(), 560u);
}

// --- Line time and PLL ---------------------------------------------------------------------

// The FPGA's reset line. The work mode bits beside it do not change.
const Lines kCameraReset{"CMOS_WORK_MODE = 0x00000001", "sleep 50000",
                         "CMOS_WORK_MODE = 0x00000000", "sleep 50000",
                         "CMOS_WORK_MODE = 0x00000001", "sleep 50000"};

TEST_F(Gmax, LineTimeNeedsTheWholeInitialisationAndRestoresTheSettings) {
  Printed([&] {
    sensor().SetROI(56, 0x1FE, 588, 0x234);
    sensor().SetReadoutDriveDirection(kBothFlip);
    sensor().SetGain(3);
  });
  tessaline_board_transcript_clear();
  Set(fpga::kReg.SENSOR_TIMING, 0);
  Set(fpga::kReg.POLARITY, 0);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetLineTime(12464)); }), "2509 init successful\n");

  const Initialisation initialisation{
      .table = TableWrites(
          {"12 = 00", "15 = 34", "16 = 02", "CE = 30", "D2 = A4", "A0 = B0", "A1 = 30", "B5 = 43"}),
      .t_ges = 656,
      .line_units = 82,
      .width = 588,
      .height = 0x234,
  };
  const Lines direction{"01 ?", "01 = 10", "DE ?", "DE = 00", "13 = 18", "14 = 00"};
  const Lines mode{"12 = 00", "13 = 04", "14 = 00", "15 = 00", "16 = 08"};
  const Lines region{"13 = 02", "14 = 02", "15 = 34", "16 = 02"};
  EXPECT_THAT(
      Programming(),
      ElementsAreArray(Lines{Timing(0), "A0 = B0", "A1 = 30"} + kCameraReset +
                       Initialised(initialisation) + direction + mode + Readout(0, 4200, 1) +
                       ImageSize(4200, 2048) + FilterSize(4200, 2048) +
                       Lines{Delay(2048, 82), DriveCode(0), "sleep 100"} + region +
                       Readout(56, 588, 1) + ImageSize(588, 0x234) + FilterSize(588, 0x234) +
                       Lines{Delay(0x234, 82), "B5 = 43", "B6 = 03"}));
  EXPECT_EQ(sensor().roi_x(), 56u);
  EXPECT_EQ(sensor().roi_y(), 0x1FEu);
  EXPECT_EQ(sensor().roi_width(), 588u);
  EXPECT_EQ(sensor().roi_height(), 0x234u);
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode00);
  EXPECT_EQ(sensor().read_out_drive_direction(), kBothFlip);
}

struct PllRow {
  unsigned mult, div;
  const char* divider;
  const char* multiplier;
};
constexpr PllRow kPlls[]{
    {9, 0, "CE = 30", "D2 = A4"},
    {0, 1, "CE = 70", "D2 = 80"},
    {31, 3, "CE = F0", "D2 = FC"},
    {1, 6, "CE = B0", "D2 = 84"},  // only two bits of the divider count
};

TEST_F(Gmax, PllStopsTheTimingAndIsInTheTableOfTheInitialisation) {
  for (const PllRow& row : kPlls) {
    tessaline_board_transcript_clear();
    EXPECT_EQ(Printed([&] {
                EXPECT_TRUE(
                    sensor().SetPLL(static_cast<PllMult>(row.mult), static_cast<PllDiv>(row.div)));
              }),
              "2509 init successful\n");
    Lines steps = Programming();
    ASSERT_GT(steps.size(), 3u);
    EXPECT_EQ(steps[0], Timing(0));
    EXPECT_EQ(steps[1], row.divider);
    EXPECT_EQ(steps[2], row.multiplier);
    steps.erase(steps.begin(), steps.begin() + 3);
    EXPECT_THAT(steps, Contains(row.divider));
    EXPECT_THAT(steps, Contains(row.multiplier));
    EXPECT_EQ(Chip(0x00) & 0x02, 0x02) << "not streaming";
  }
}

TEST_F(Gmax, HalfSizeSurvivesANewLineTimeButIsReportedAsAFailure) {
  Printed([&] { ASSERT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11)); });
  tessaline_board_transcript_clear();
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetLineTime(152)); }),
            "2509 init successful\ndrive mode error\nGMAX2509::ResetAndInitialize() error.\n");
  // The sensor is initialised for all pixels. Then it enters the mode again.
  Lines codes = Programming();
  std::erase_if(codes, [](const std::string& step) { return !step.starts_with("ROI_OFFSET"); });
  EXPECT_THAT(codes, ElementsAre(DriveCode(0), DriveCode(3)));
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode11);
  EXPECT_EQ(sensor().roi_width(), 2100u);
  EXPECT_EQ(Chip(0x12), 1);
}

TEST_F(Gmax, ReapplyingTriesEveryStepAndReportsOnce) {
  Printed([&] {
    sensor().SetReadoutDriveDirection(ReadoutDriveDirection{7});
    sensor().SetReadoutDriveMode(kDriveMode22);
  });
  tessaline_board_transcript_clear();
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().ResetAndInitialize()); }),
            "2509 init successful\nSetReverseMode invalid parameter\n"
            "SetDriveMode invalid parameter\ndrive mode error\n"
            "GMAX2509::ResetAndInitialize() error.\n");
  EXPECT_THAT(Accesses().back(), "B6 = 01");
  EXPECT_EQ(Chip(0x00) & 0x02, 0x02);
}

TEST_F(Gmax, WithoutAnFpgaNothingIsProgrammed) {
  const tessaline_test::LoggedErrors errors;
  devices().fpga_logic_.reset();
  EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00));
  EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode00));
  EXPECT_FALSE(sensor().SetROI(0, 0, 560, 100));
  EXPECT_FALSE(sensor().SetPLL(PllMult{9}, PllDiv{0}));
  EXPECT_FALSE(sensor().SetLineTime(152));
  EXPECT_FALSE(sensor().ResetAndInitialize());
  EXPECT_THAT(Accesses(), IsEmpty());
  EXPECT_EQ(errors.lines().size(), 6u);
}

// --- With the capture threads running ------------------------------------------------------

struct RunningGmax : Gmax {
  void SetUp() override {
    Gmax::SetUp();
    Printed([] { ASSERT_EQ(RegisterHardwareInit(), 0); });
    tessaline_board_transcript_clear();
  }
};

TEST_F(RunningGmax, VideoFormatFollowsRegionAndMode) {
  Printed([] {
    sensor().SetROI(56, 4, 588, 100);
    sensor().SetReadoutDriveMode(kDriveMode11);
    sensor().SetReadoutDriveMode(kDriveMode00);
  });
  EXPECT_THAT(FormatsAsked(), ElementsAre("588x100", "2100x1024", "4200x2048"));
}

TEST_F(RunningGmax, TheVideoFormatIsAskedForWhenTheFpgaHasFollowed) {
  const Lines steps{"EXP_DELAY", "ROI_OFFSET", "VIDIOC_TRY_FMT", "sleep 100"};
  for (const ReadoutDriveMode mode : {kDriveMode11, kDriveMode00}) {
    tessaline_board_transcript_clear();
    Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(mode)); });
    EXPECT_THAT(OrderOf(steps), ElementsAreArray(steps)) << mode;
  }
  tessaline_board_transcript_clear();
  Printed([] { EXPECT_TRUE(sensor().SetROI(56, 4, 588, 100)); });
  EXPECT_THAT(OrderOf(steps), ElementsAre("EXP_DELAY", "VIDIOC_TRY_FMT"));
}

// --- Use by the series ---------------------------------------------------------------------

TEST_F(Gmax, LinesAreSlowForImagesAndFastForLaserLines) {
  const auto switch_to = [](CollectMode mode) {
    devices().fpga_logic_->SetCollectMode(mode);
    tessaline_board_transcript_clear();
    SeriesLogicFactory::GetSeriesLogicInstance()->Notify(kCollectModeChanged);
  };
  EXPECT_EQ(Printed([&] { switch_to(kCollectImage); }), "2509 init successful\n");
  EXPECT_EQ(Chip(0xA0) | Chip(0xA1) << 8, 12464);
  EXPECT_EQ(Printed([&] { switch_to(kCollectLaserLine); }), "2509 init successful\n");
  EXPECT_EQ(Chip(0xA0) | Chip(0xA1) << 8, 152);
}

}  // namespace
}  // namespace VeltranoSDK
