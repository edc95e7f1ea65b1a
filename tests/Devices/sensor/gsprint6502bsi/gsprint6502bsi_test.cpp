// The GSPRINT6502BSI driver on a K3910 board: what it writes to the chip and the FPGA, in which
// order, and what it rejects. gsprint_init_test.cpp tests the initialisation.
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"

#include <algorithm>
#include <functional>

#include "Devices/sensor/gsprint6502bsi/GsprintTest.h"
#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::LoggedLines;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Gsprint = GsprintTest;

TEST_F(Gsprint, IsWhatTheBoardHas) {
  EXPECT_EQ(sensor().model(), kGSPRINT6502BSI);
  EXPECT_EQ(sensor().resolution(), std::pair(2048u, 1152u));
  EXPECT_EQ(sensor().GetStripBufferSize(), 655360u);
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x0136260Du);
  EXPECT_EQ(sensor().GetSensorVer(0), 0xFFFFFFFFu);
  EXPECT_EQ(sensor().GetExposureTimeUnit(), 1.1333333F);
  EXPECT_THAT(Accesses(), IsEmpty());
}

// --- Region of interest --------------------------------------------------------------------

TEST_F(Gsprint, ARegionGoesToChipAndFpga) {
  Set(fpga::kReg.ISP_CTRL, 0xFF);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(32, 300, 2016, 770)); }), "");
  EXPECT_THAT(
      Programming(),
      ElementsAre("0130 = 02", "0131 = 03", "0140 = 30", "0141 = 01", "00B2 = 02", "00B3 = 03",
                  "ISP_WIDTH = 0x00000001", "ISP_HEIGHT = 0x0000003f", "ISP_CTRL = 0x000000fd",
                  "STRIP_IMAGE_WIDTH = 0x000007e0", "STRIP_IMAGE_HEIGHT = 0x00000302",
                  "IMG_FILTER_WIDTH = 0x000007e0", "IMG_FILTER_HEIGHT = 0x00000302",
                  "IMG_FILTER_THRS = 0x00000000", "sleep 1000", "IMG_FILTER_THRS = 0x00010000",
                  "STRIP_SELECTOR_IMAGE_WIDTH = 0x000007e0", "ISP_HEIGHT = 0x0003023f",
                  "EXP_DELAY = 0x000007c1"));
}

TEST_F(Gsprint, RowsAreElevenBits) {
  EXPECT_TRUE(sensor().SetROI(0, 0xFFFC, 64, 0xFFFE));
  const Lines accesses = Accesses();
  EXPECT_THAT(accesses, ElementsAre("0130 = FE", "0131 = 07", "0140 = 00", "0141 = 00", "00B2 = FE",
                                    "00B3 = 07"));
}

struct Region {
  unsigned x, y, width, height;
};
constexpr Region kTaken[]{{0, 0, 2048, 1152}, {32, 0, 2016, 1152}, {2016, 1150, 32, 2}};
constexpr Region kRefused[]{{16, 0, 64, 2},   {0, 0, 2000, 2},  {0, 0, 64, 3},
                            {32, 0, 2048, 2}, {2048, 0, 32, 2}, {0xFFFFFFE0, 0, 32, 2},
                            {0, 0, 2080, 2}};

TEST_F(Gsprint, RegionsComeInStepsOf32ColumnsAndTwoRows) {
  for (const auto& [x, y, width, height] : kTaken) {
    EXPECT_TRUE(sensor().SetROI(x, y, width, height)) << x << ' ' << width;
  }
  tessaline_board_transcript_clear();
  const LoggedLines logged(TESSALINE_LOG_INFO);
  for (const Region& r : kRefused) {
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetROI(r.x, r.y, r.width, r.height)); }), "");
    EXPECT_EQ(sensor().roi_width(), r.width);
  }
  EXPECT_THAT(Programming(), IsEmpty());
  EXPECT_THAT(logged.Take(), IsEmpty());
}

TEST_F(Gsprint, RegionsAreLogged) {
  const LoggedLines logged(TESSALINE_LOG_DEBUG);
  log_set_level(TESSALINE_LOG_DEBUG);
  sensor().SetROI(32, 4, 64, 8);
  EXPECT_THAT(logged.Take(),
              ElementsAre("DEBUG Devices/GSPRINT6502BSI.cpp: ROI left, top, width, height: "
                          "32, 4, 64, 8 ",
                          "DEBUG Devices/GSPRINT6502BSI.cpp: ROI OK"));
  sensor().SetReadoutDriveMode(kDriveMode11);
  logged.Take();
  EXPECT_FALSE(sensor().SetROI(0, 0, 32, 2));
  EXPECT_THAT(logged.Take(),
              ElementsAre(HasSubstr("0, 0, 32, 2 "),
                          "ERROR Devices/GSPRINT6502BSI.cpp: ROI read_out_drive_mode error"));
}

// --- Readout mode and direction ------------------------------------------------------------

TEST_F(Gsprint, HalvedReadoutSubsamplesAndLeavesTheImageSize) {
  SetChip(0x0110, 0xF0);
  SetChip(0x0196, 0xF0);
  Set(fpga::kReg.ROI_OFFSET, 0x00ABCDEF);
  Set(fpga::kReg.STRIP_IMAGE_WIDTH, 2048);
  log_set_quiet(true);
  EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11));
  EXPECT_THAT(Programming(), ElementsAre("0110 ?", "0110 = F1", "0111 = 01", "0196 ?", "0196 = F3",
                                         "ROI_OFFSET = 0x06000000"));
  EXPECT_EQ(sensor().roi_width(), 1024u);
  EXPECT_EQ(sensor().roi_height(), 576u);
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_WIDTH), 2048u);
}

TEST_F(Gsprint, HalvedReadoutAsksForItsRegionAndIsRefused) {
  ASSERT_TRUE(sensor().SetROI(32, 2, 64, 4));
  const LoggedLines logged(TESSALINE_LOG_DEBUG);
  log_set_level(TESSALINE_LOG_DEBUG);
  EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11));
  EXPECT_THAT(logged.Take(),
              ElementsAre("DEBUG Devices/GSPRINT6502BSI.cpp: ROI left, top, width, height: "
                          "0, 0, 1024, 576 ",
                          "ERROR Devices/GSPRINT6502BSI.cpp: ROI read_out_drive_mode error"));
  EXPECT_EQ(sensor().roi_x(), 32u);
}

TEST_F(Gsprint, EveryPixelReappliesTheWholeRegion) {
  SetChip(0x0110, 0xFF);
  SetChip(0x0196, 0xFF);
  ASSERT_TRUE(sensor().SetROI(32, 2, 64, 4));
  tessaline_board_transcript_clear();
  EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode00));
  const Lines steps = Programming();
  EXPECT_THAT(Lines(steps.begin(), steps.begin() + 11),
              ElementsAre("0110 ?", "0110 = FE", "0111 = 00", "0196 ?", "0196 = FC", "0130 = 80",
                          "0131 = 04", "0140 = 04", "0141 = 00", "00B2 = 80", "00B3 = 04"));
  EXPECT_EQ(steps.back(), "ROI_OFFSET = 0x00000000");
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_WIDTH), 2048u);
  EXPECT_EQ(sensor().roi_x(), 32u);
}

TEST_F(Gsprint, OtherModesAreRefusedAndRecorded) {
  for (const unsigned mode : {0x22u, 0x01u, 0x10u}) {
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(ReadoutDriveMode{mode})); }),
              "SetDriveMode invalid parameter\n");
    EXPECT_EQ(sensor().read_out_drive_mode(), mode);
  }
  EXPECT_THAT(Programming(), IsEmpty());
}

TEST_F(Gsprint, AnyDirectionIsTakenAndChangesNothing) {
  for (const unsigned direction : {0u, 1u, 2u, 3u, 77u}) {
    EXPECT_TRUE(sensor().SetReadoutDriveDirection(ReadoutDriveDirection{direction}));
  }
  EXPECT_THAT(Programming(), IsEmpty());
}

// --- Gain, temperature, delays -------------------------------------------------------------

// The rows after the first wait for the maker's documents and repeat it.
TEST_F(Gsprint, AGainIsSixRegistersAndKeepsForeignBits) {
  SetChip(0x00A0, 0xEE);
  SetChip(0x00A2, 0xDD);
  SetChip(0x200C, 0xFF);
  EXPECT_TRUE(sensor().SetGain(1));
  EXPECT_THAT(Programming(), ElementsAre("00A0 ?", "00A0 = E1", "00A2 ?", "00A2 = D1", "040B = 11",
                                         "080B = 11", "200C ?", "200C = C3", "2001 = 05"));
}

TEST_F(Gsprint, GainLevelsAreOneToFour) {
  for (const unsigned gain : {0u, 1u, 2u, 3u, 4u, 7u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(sensor().SetGain(gain)) << gain;
  }
}

TEST_F(Gsprint, TheTemperatureIsSixteenBits) {
  SetChip(0x2500, 0x34);
  SetChip(0x2501, 0xF2);
  EXPECT_EQ(sensor().GetSensorTemp(), 0xF234u);
}

TEST_F(Gsprint, TheCameraDelayFollowsLineTimeAndHeight) {
  EXPECT_EQ(sensor().GetCameraDelay(), (1156u / 2 + 10) * 5);
  ASSERT_TRUE(sensor().SetLineTime(true));
  EXPECT_EQ(sensor().GetCameraDelay(), 1156u / 2 + 10);
  sensor().SetROI(0, 0, 32, 3);
  EXPECT_EQ(sensor().GetCameraDelay(), 3u + 10);
}

TEST_F(Gsprint, LineTimesAreFastAndSlow) {
  SetChip(0x0081, 0xFF);
  EXPECT_TRUE(sensor().SetLineTime(true));
  EXPECT_TRUE(sensor().SetLineTime(false));
  EXPECT_THAT(Programming(),
              ElementsAre("0080 = 48", "0081 ?", "0081 = C0", "SENSOR_TIMING = 0x00000004",
                          "0080 = 68", "0081 ?", "0081 = C1", "SENSOR_TIMING = 0x00000014"));
}

TEST_F(Gsprint, LineTimesAreLogged) {
  const LoggedLines logged(TESSALINE_LOG_DEBUG);
  log_set_level(TESSALINE_LOG_DEBUG);
  sensor().SetLineTime(true);
  sensor().SetLineTime(false);
  EXPECT_THAT(logged.Take(), ElementsAre("DEBUG Devices/GSPRINT6502BSI.cpp:  -------------- 1",
                                         "DEBUG Devices/GSPRINT6502BSI.cpp:  -------------- 0"));
}

// --- High dynamic range --------------------------------------------------------------------

TEST_F(Gsprint, HdrCountsItsKneesInLineTime) {
  SetChip(0x0003, 0xFF);
  EXPECT_TRUE(sensor().SetHdr(true));
  EXPECT_THAT(Programming(),
              ElementsAre("0003 ?", "0003 = FD", "0191 = 03", "0192 = 14", "0213 = 14", "0215 = 06",
                          "0217 = 06", "0219 = A0", "021A = 05", "021B = A0", "021C = 05",
                          "021D = A0", "021E = 05"));
  ASSERT_TRUE(sensor().SetLineTime(true));
  EXPECT_TRUE(sensor().SetHdr(true));
  EXPECT_EQ(Chip(0x0219), 0x20);
  EXPECT_EQ(Chip(0x021A), 0x01);
}

TEST_F(Gsprint, HdrIsSwitchedOff) {
  SetChip(0x0003, 0xFD);
  EXPECT_TRUE(sensor().SetHdr(false));
  EXPECT_THAT(Programming(),
              ElementsAre("0003 ?", "0003 = FC", "0191 = 01", "0192 = 00", "0213 = 04", "0215 = 04",
                          "0217 = 04", "0219 = CC", "021A = 00", "021B = CC", "021C = 00",
                          "021D = CC", "021E = 00"));
}

// --- Through the exported functions --------------------------------------------------------

TEST_F(Gsprint, SensingModeIsHdrInFpgaAndSensor) {
  EXPECT_EQ(SetSensingMode(2), 0);
  EXPECT_EQ(Chip(0x0191), 3);
  EXPECT_EQ(SetSensingMode(1), 0);
  EXPECT_EQ(Get(fpga::kReg.HDR_CTRL) & 1, 1u);
  EXPECT_EQ(SetSensingMode(0), 0);
  EXPECT_EQ(Get(fpga::kReg.HDR_CTRL) & 1, 0u);
  EXPECT_EQ(Chip(0x0191), 1);
}

TEST_F(Gsprint, TheSensingModeGoesToTheFpgaFirst) {
  EXPECT_EQ(SetSensingMode(1), 0);
  Lines steps = Programming();
  steps.resize(3);
  EXPECT_THAT(steps, ElementsAre("HDR_CTRL = 0x00000001", "0003 ?", "0003 = 01"));
}

TEST_F(Gsprint, GainAndTemperatureThroughTheExportedFunctions) {
  EXPECT_EQ(SetCmosGain(9), 1);
  EXPECT_THAT(Accesses(), ElementsAreArray(kFirstGain));
  SetChip(0x2500, 0);
  SetChip(0x2501, 1);
  EXPECT_EQ(GetSensorTemp(), 0);
  SetChip(0x2501, 0);
  EXPECT_EQ(GetSensorTemp(), -1);
  tessaline_board_fault("spi1.0", "*", 0, 0, EIO);
  EXPECT_EQ(GetSensorTemp(), -1) << "a bus that fails reads as 0";
  EXPECT_EQ(SetCmosGain(1), 1) << "and is not noticed";
}

TEST_F(Gsprint, RegionsAndModesThroughTheExportedFunctions) {
  log_set_quiet(true);
  EXPECT_EQ(GetCmosMaxDrive(), 2048u << 16 | 1152);
  EXPECT_EQ(SetROI1(32, 0, 2016, 1152), 0);
  EXPECT_EQ(SetROI1(16, 0, 64, 2), -1);
  EXPECT_EQ(GetImageWidth(), 64u);
  EXPECT_EQ(GetImageHeight(), 2u);
  EXPECT_EQ(SetDriveMode(0x11), 0);
  EXPECT_EQ(SetROI1(0, 0, 64, 2), -1);
  EXPECT_EQ(SetDriveMode(0x22), -1);
  EXPECT_EQ(SetDriveMode(0x00), 0);
  EXPECT_EQ(GetImageWidth(), 2048u);
  EXPECT_EQ(SetReverseMode(2), 0);
  EXPECT_EQ(TransferMaxFrameValue(), 0x0136260Du);
  EXPECT_EQ(SetExposureTime(1, 1000), 0);
  EXPECT_EQ(Get(fpga::kReg.EXP_TIME_1), 883u);  // 882.35 steps
}

TEST_F(Gsprint, HdrSegmentsAndContinuousGoToTheFpga) {
  EXPECT_EQ(SetExposureTime(1, 100), 0);
  SetHDRParam24(0.5, 0.25, 0);
  EXPECT_EQ(Get(fpga::kReg.HDR_SEG2), 1250u);
  SetFpgaContinuous(1);
  EXPECT_EQ(Get(fpga::kReg.FPGA_CONTINUOUS), 1u);
  EXPECT_EQ(SetHDRParam(1, 10), 0);
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(Gsprint, CollectModesChangeTheLineTime) {
  EXPECT_EQ(SetCollectMode(0), 0);
  EXPECT_THAT(Accesses(), ElementsAre("0080 = 48", "0081 ?", "0081 = 00"));
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetCollectMode(1), 0);
  EXPECT_THAT(Accesses(), ElementsAre("0080 = 68", "0081 ?", "0081 = 01"));
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetCollectMode(2), -1);
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(Gsprint, CollectModesSetHdrUpAnewWhenTheFpgaHasItOn) {
  Set(fpga::kReg.HDR_CTRL, 1);
  EXPECT_EQ(SetCollectMode(0), 0);
  EXPECT_EQ(Chip(0x0219), 0x20);
  EXPECT_EQ(SetCollectMode(1), 0);
  EXPECT_EQ(Chip(0x0219), 0xA0);
}

// --- Traces --------------------------------------------------------------------------------

struct Traced {
  const char* name;
  std::function<void(GSPRINT6502BSI&)> call;
};
const Traced kTraced[]{
    {"RegisterInitialize", [](GSPRINT6502BSI& s) { s.RegisterInitialize(kDriveMode00); }},
    {"Reset", [](GSPRINT6502BSI& s) { s.Reset(); }},
    {"ResetAndInitialize", [](GSPRINT6502BSI& s) { s.ResetAndInitialize(); }},
    {"StreamEn", [](GSPRINT6502BSI& s) { s.StreamEn(true); }},
    {"InternalSerClkEn", [](GSPRINT6502BSI& s) { s.InternalSerClkEn(true); }},
    {"PmuUpDownCtrl", [](GSPRINT6502BSI& s) { s.PmuUpDownCtrl(true); }},
    {"ConfigUpload", [](GSPRINT6502BSI& s) { s.ConfigUpload(); }},
    {"RecommandedRegisterSetting", [](GSPRINT6502BSI& s) { s.RecommandedRegisterSetting(); }},
    {"SetGain", [](GSPRINT6502BSI& s) { s.SetGain(1); }},
    {"GetSensorTemp", [](GSPRINT6502BSI& s) { s.GetSensorTemp(); }},
    {"GetSensorVer", [](GSPRINT6502BSI& s) { s.GetSensorVer(0); }},
    {"SetHdr", [](GSPRINT6502BSI& s) { s.SetHdr(true); }},
    {"SetROIImpl", [](GSPRINT6502BSI& s) { s.SetROI(0, 0, 32, 2); }},
    {"SetReadoutDriveModeImpl", [](GSPRINT6502BSI& s) { s.SetReadoutDriveMode(kDriveMode00); }},
    {"SetReadoutDriveDirectionImpl",
     [](GSPRINT6502BSI& s) { s.SetReadoutDriveDirection(kNormal); }},
};

TEST_F(Gsprint, CallsAreTraced) {
  const LoggedLines logged(TESSALINE_LOG_TRACE);
  log_set_level(TESSALINE_LOG_TRACE);
  for (const Traced& traced : kTraced) {
    logged.Take();
    Printed([&] { traced.call(sensor()); });
    const Lines lines = logged.Take();
    const std::string own = "TRACE Devices/GSPRINT6502BSI.cpp: ";
    const auto first =
        std::ranges::find_if(lines, [&](const std::string& line) { return line.starts_with(own); });
    ASSERT_NE(first, lines.end()) << traced.name;
    EXPECT_EQ(*first, own + traced.name);
  }
}

}  // namespace
}  // namespace VeltranoSDK
