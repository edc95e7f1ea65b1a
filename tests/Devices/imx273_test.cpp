// The IMX273 driver on a K3610 board: what it writes to the chip and to the FPGA,
// in which order, and what it says when the bus fails.
#include "Devices/IMX273.h"

#include <bit>

#include "SonySensorTest.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

const Lines kLeaveStandby{"3000 = 00",  "sleep 2000",
                          "sleep 1500", "CMOS_TIMING_CTRL = 0x00000000",
                          "sleep 100",  "CMOS_TIMING_CTRL = 0x00000004",
                          "sleep 2000", "CMOS_TIMING_CTRL = 0x00000005"};

const Lines kPrepare = kLeaveStandby + Lines{"SENSOR_TIMING = 0x00000014",
                                             "CMOS_TIMING_CTRL = 0x00000004",
                                             "sleep 100",
                                             "3000 = 01",
                                             "sleep 1000",
                                             "POLARITY = 0x00000004"};

const Lines kFixedSettings{
    "300B = 01", "300C = 02", "3016 = 02", "308A = 0B", "308C = 08", "30AA = 00", "30AE = 01",
    "3165 = 00", "3169 = 10", "316A = 02", "3182 = 01", "31C8 = F3", "31D0 = F4", "3212 = 08",
    "321A = 00", "3226 = 02", "3254 = 00", "3758 = A3", "3759 = 00", "375A = 85", "375B = 00",
    "3832 = F5", "3833 = 00", "38A2 = F6", "38A3 = 00", "3A00 = 80", "3D48 = A3", "3D49 = 00",
    "3D4A = 85", "3D4B = 00", "400E = 58", "4014 = 1C", "4041 = 2A", "40A2 = 06", "40C1 = F6",
    "40C7 = 0F", "40C8 = 00"};

// The crop line's enable, then its place; the size keeps the bits above it.
const Lines kFullCrop{"3300 ?",    "3300 = 01", "3310 = 00", "3311 ?",    "3311 = 00", "3314 = B0",
                      "3315 ?",    "3315 = 05", "3300 ?",    "3300 = 03", "3312 = 00", "3313 ?",
                      "3313 = 00", "3316 = 40", "3317 ?",    "3317 = 04"};

const Lines kFullTiming{"3010 = 6A", "3011 = 04", "3012 = 00", "3014 = EE", "3015 = 00"};

const Lines kNoCrop{"3310 = 00", "3311 = 00", "3312 = 00", "3313 = 00", "3314 = 00",
                    "3315 = 00", "3316 = 00", "3317 = 00", "3300 = 00"};

const Lines kReducedTiming{"3010 = 4A", "3011 = 02", "3012 = 00", "3014 = DA", "3015 = 00"};

const Lines kGoLive = kLeaveStandby + Lines{"sleep 100000", "301D = 01"};

// T_ROW 237 and 217 in bits 5 and up, T_GES 20 below.
constexpr char kFullTRow[] = "SENSOR_TIMING = 0x00001db4";
constexpr char kReducedTRow[] = "SENSOR_TIMING = 0x00001b34";

class Imx273 : public SonySensorTest {
 protected:
  static IMX273& sensor() { return dynamic_cast<IMX273&>(*devices().cmos_sensor_); }

  // The sensor in a mode, with nothing of the way there in the transcript.
  void Enter(ReadoutDriveMode mode) {
    Printed([&] { ASSERT_TRUE(sensor().SetReadoutDriveMode(mode)); });
    tessaline_board_transcript_clear();
  }
};

// --- Construction and queries --------------------------------------------------------------

TEST_F(Imx273, KnowsItsModelAndSize) {
  EXPECT_EQ(sensor().model(), kIMX273);
  EXPECT_EQ(sensor().resolution(), std::pair(1456u, 1088u));
  EXPECT_EQ(sensor().roi_width(), 1456u);
  EXPECT_EQ(sensor().roi_height(), 1088u);
  EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(Imx273, CameraDelayFollowsTheRegionsHeight) {
  EXPECT_EQ(sensor().GetCameraDelay(), 1133u);
  Printed([&] { sensor().SetROI(0, 0, 100, 200); });
  EXPECT_EQ(sensor().GetCameraDelay(), 245u);
}

TEST_F(Imx273, ExposureUnitIsTheLineTimeOfTheMode) {
  EXPECT_EQ(std::bit_cast<unsigned>(sensor().GetExposureTimeUnit()), 0x404D2510u);
  Enter(kDriveMode11);
  EXPECT_EQ(std::bit_cast<unsigned>(sensor().GetExposureTimeUnit()), 0x403BE7DEu);
  Enter(kDriveMode22);
  EXPECT_EQ(std::bit_cast<unsigned>(sensor().GetExposureTimeUnit()), 0x403BE7DEu);
}

TEST_F(Imx273, MaxFrameValueByMode) {
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x00EE2A11u);
  Enter(kDriveMode11);
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x00DA2A11u);
  Enter(kDriveMode22);
  EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x00EE2A11u);
  Printed([&] { sensor().SetReadoutDriveMode(ReadoutDriveMode{0x33}); });
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().TransferMaxFrameValue(), 0x2A11u); }),
            "IMX273::TransferMaxFrameValue() \n");
}

// --- Gain, temperature, identification, flip -----------------------------------------------

TEST_F(Imx273, GainIsClampedTo48AndWrittenInTenths) {
  SetChip(0x3205, 0x54);
  EXPECT_TRUE(sensor().SetGain(60));
  EXPECT_THAT(Programming(), ElementsAre("3205 ?", "3205 = 55", "3204 = E0"));
}

TEST_F(Imx273, SmallGainClearsTheNinthBit) {
  SetChip(0x3205, 0xFF);
  EXPECT_TRUE(sensor().SetGain(25));
  EXPECT_THAT(Programming(), ElementsAre("3205 ?", "3205 = FE", "3204 = FA"));
}

TEST_F(Imx273, GainSaysWhichHalfFailed) {
  FailEveryWrite([&] { return sensor().SetGain(10); },
                 [](const std::string& reg, int) {
                   return "0x" + reg + " write SetGain Abnormal communication\n";
                 });
}

TEST_F(Imx273, TemperatureIsLatchedReadAndReleased) {
  SetChip(0x301E, 0x34);
  SetChip(0x301F, 0xFE);
  EXPECT_EQ(sensor().GetSensorTemp(), 0x234u);
  EXPECT_THAT(Programming(), ElementsAre("301D = 01", "301E ?", "301F ?", "301D = 00"));
}

TEST_F(Imx273, TemperatureWithoutLatchIsAllOnes) {
  FailAccess(0);
  unsigned code = 0;
  EXPECT_EQ(Printed([&] { code = sensor().GetSensorTemp(); }),
            "0x301D GetSensorTemp Abnormal communication\n");
  EXPECT_EQ(code, 0xFFFFFFFFu);
  EXPECT_EQ(Accesses().size(), kTries);
}

TEST_F(Imx273, TemperatureSurvivesAFailedRelease) {
  SetChip(0x301E, 0x34);
  SetChip(0x301F, 0x01);
  FailAccess(3);
  unsigned code = 0;
  EXPECT_EQ(Printed([&] { code = sensor().GetSensorTemp(); }),
            "0x301D GetSensorTemp Abnormal communication\n");
  EXPECT_EQ(code, 0x134u);
}

TEST_F(Imx273, VersionKindZeroIsTheNineBitType) {
  SetChip(0x3148, 0xC5);
  SetChip(0x3149, 0xFF);
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetSensorVer(0), 0x1FFu); }),
            "GetSensorVer Type succeffful!\n");
  SetChip(0x3148, 0x40);
  SetChip(0x3149, 0x44);
  Printed([&] { EXPECT_EQ(sensor().GetSensorVer(0), 273u); });
}

TEST_F(Imx273, VersionKindOneIsTheTopBit) {
  SetChip(0x3149, 0x7F);
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetSensorVer(1), 0u); }),
            "GetSensorVer Type succeffful!\n");
  SetChip(0x3149, 0x80);
  Printed([&] { EXPECT_EQ(sensor().GetSensorVer(1), 1u); });
}

TEST_F(Imx273, OtherVersionKindsAreRefused) {
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetSensorVer(2), 0xFFFFFFFDu); }),
            "GetSensorVer invalid parameter\n");
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(Imx273, FlipKeepsTheBitsAboveIt) {
  SetChip(0x300E, 0xA7);
  EXPECT_TRUE(sensor().SetReadoutDriveDirection(kHorizontalFlip));
  EXPECT_THAT(Programming(), ElementsAre("300E ?", "300E = A6"));
  EXPECT_EQ(sensor().read_out_drive_direction(), kHorizontalFlip);
}

TEST_F(Imx273, FailedFlipSpeaksOfARead) {
  FailAccess(1);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveDirection(kBothFlip)); }),
            "0x300E read SetReverseMode Abnormal communication\n");
  EXPECT_EQ(sensor().read_out_drive_direction(), kBothFlip);
}

// --- Crop operations -----------------------------------------------------------------------

TEST_F(Imx273, RoiOpenAndCloseSetAndMaskTheEnables) {
  SetChip(0x3300, 0x04);
  EXPECT_EQ(sensor().ROIOpen(0x02), 0);
  EXPECT_EQ(Chip(0x3300), 0x06);
  EXPECT_EQ(sensor().ROIClose(0x0B), 0);
  EXPECT_EQ(Chip(0x3300), 0x02);
  EXPECT_THAT(Programming(), ElementsAre("3300 ?", "3300 = 06", "3300 ?", "3300 = 02"));
}

TEST_F(Imx273, RoiOpenAndCloseTellABusFailureAlike) {
  FailAccess(1);
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().ROIOpen(1), -1); }),
            "0x3300 write roi init Abnormal communication\n");
  FailAccess(1);
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().ROIClose(1), -1); }),
            "0x3300 write roi init Abnormal communication\n");
}

TEST_F(Imx273, CheckRoiInitReportsTheLinesBit) {
  for (int line = 0; line < 4; ++line) {
    SetChip(0x3300, 1u << line);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().CheckROIInit(line), 0); }), "this line init \n");
    SetChip(0x3300, 0x0F & ~(1u << line));
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().CheckROIInit(line), 1); }), "this line not init \n");
  }
}

TEST_F(Imx273, CheckRoiInitTakesAnyOtherLineForEnabled) {
  for (const int line : {-1, 4, 100}) {
    tessaline_board_transcript_clear();
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().CheckROIInit(line), 0); }), "this line init \n");
    EXPECT_THAT(Accesses(), ElementsAre("3300 ?"));
  }
}

struct CropRow {
  unsigned line;
  unsigned low;          // register; the high one follows
  unsigned kept;         // of the high register
  const char* enabled;   // what 0x3300 becomes from 0xF0
  const char* disabled;  // and from 0xFF
};
constexpr CropRow kCropLineRows[]{
    {0, 0x3310, 0xE0, "3300 = F1", "3300 = 0E"},
    {1, 0x3312, 0xF0, "3300 = F2", "3300 = 0D"},
    {2, 0x3318, 0xE0, "3300 = F4", "3300 = 0B"},
    {3, 0x331A, 0xF0, "3300 = F8", "3300 = 07"},
};

TEST_F(Imx273, CropLineIsEnabledAndPlaced) {
  for (const CropRow& row : kCropLineRows) {
    SetChip(0x3300, 0xF0);
    SetChip(row.low + 1, 0xFF);
    tessaline_board_transcript_clear();
    EXPECT_EQ(sensor().SetCropLine(0, row.line, 0xABCD), 0);
    const unsigned high = row.kept | (0xAB & ~row.kept & 0xFF);
    EXPECT_THAT(Programming(), ElementsAre("3300 ?", row.enabled, Wrote(row.low, 0xCD),
                                           Name(row.low + 1) + " ?", Wrote(row.low + 1, high)));
  }
}

TEST_F(Imx273, CropLineIsDisabledByItsMask) {
  for (const CropRow& row : kCropLineRows) {
    SetChip(0x3300, 0xFF);
    tessaline_board_transcript_clear();
    EXPECT_EQ(sensor().SetCropLine(1, row.line, 5), 0);
    EXPECT_THAT(Programming(), ElementsAre("3300 ?", row.disabled));
  }
}

TEST_F(Imx273, CropLineFailuresNameTheRegister) {
  for (const CropRow& row : kCropLineRows) {
    const std::string text = " write SetCropLine Abnormal communication\n";
    FailAccess(1);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropLine(0, row.line, 1), -1); }),
              "0x3300 write roi init Abnormal communication\nline init Abnormal communication\n");
    FailAccess(2);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropLine(0, row.line, 1), -1); }),
              "0x" + Name(row.low) + text);
    FailAccess(4);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropLine(0, row.line, 1), -1); }),
              "0x" + Name(row.low + 1) + text);
    FailAccess(1);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropLine(1, row.line, 1), -1); }),
              "0x3300 write roi init Abnormal communication\nline close Abnormal communication\n");
  }
}

TEST_F(Imx273, CropLineRefusesOtherLinesAndOtherCommands) {
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropLine(0, 4, 1), -2); }),
            "SetCropLine line invalid parameter\n");
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropLine(2, 0, 1), -2); }),
            "SetCropLine line invalid parameter\n");
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(Imx273, CropLineWorksInModes00And11Only) {
  Enter(kDriveMode11);
  EXPECT_EQ(sensor().SetCropLine(1, 0, 0), 0);
  Enter(kDriveMode22);
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropLine(9, 9, 0), -3); }), "drive mode error\n");
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(Imx273, GetCropLineReadsAnEnabledLine) {
  for (const CropRow& row : kCropLineRows) {
    SetChip(0x3300, 1u << row.line);
    SetChip(row.low, 0x12);
    SetChip(row.low + 1, 0xFF);
    const int line = static_cast<int>(row.line);
    const int value = static_cast<int>((~row.kept & 0xFF) << 8 | 0x12);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetCropLine(line), value); }), "this line init \n");
    SetChip(0x3300, 0);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetCropLine(line), -1); }),
              "this line not init \nline is not init\n");
  }
}

TEST_F(Imx273, GetCropLineRefusesOtherLines) {
  for (const int line : {-1, 4}) {
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetCropLine(line), -3); }),
              "GetCropLine line invalid parameter\n");
  }
  EXPECT_THAT(Accesses(), IsEmpty());
}

struct SizeRow {
  int index;
  unsigned low;
  unsigned high_read;
  unsigned high_written;
  unsigned kept;
};
constexpr SizeRow kCropSizeRows[]{
    {0, 0x3314, 0x3315, 0x3315, 0xE0},
    {1, 0x3316, 0x3317, 0x3317, 0xF0},
    {2, 0x331C, 0x331D, 0x3315, 0xE0},
    {3, 0x331E, 0x331F, 0x331F, 0xF0},
};

TEST_F(Imx273, CropSizeKeepsTheBitsAboveIt) {
  for (const SizeRow& row : kCropSizeRows) {
    SetChip(row.high_read, 0xFF);
    tessaline_board_transcript_clear();
    EXPECT_EQ(sensor().SetCropSize(row.index, 0x1234), 0);
    const unsigned high = row.kept | (0x12 & ~row.kept & 0xFF);
    EXPECT_THAT(Programming(), ElementsAre(Wrote(row.low, 0x34), Name(row.high_read) + " ?",
                                           Wrote(row.high_written, high)));
  }
}

TEST_F(Imx273, CropSizeFailuresNameTheRegisterRead) {
  for (const SizeRow& row : kCropSizeRows) {
    const std::string text = " write SetCropSize Abnormal communication\n";
    FailAccess(0);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropSize(row.index, 1), -1); }),
              "0x" + Name(row.low) + text);
    FailAccess(2);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropSize(row.index, 1), -1); }),
              "0x" + Name(row.high_read) + text);
  }
}

TEST_F(Imx273, CropSizeReadsBackItsOwnPair) {
  for (const SizeRow& row : kCropSizeRows) {
    SetChip(row.low, 0x56);
    SetChip(row.high_read, 0xFF);
    EXPECT_EQ(sensor().GetCropSize(row.index), static_cast<int>((~row.kept & 0xFF) << 8 | 0x56));
  }
}

TEST_F(Imx273, CropSizeRefusesOtherIndices) {
  for (const int index : {-1, 4}) {
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().SetCropSize(index, 1), -2); }),
              "SetCropSize invalid parameter\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().GetCropSize(index), -2); }),
              "GetCropSize invalid parameter\n");
  }
  EXPECT_THAT(Accesses(), IsEmpty());
}

// --- Power-up programming ------------------------------------------------------------------

TEST_F(Imx273, InitialisesForAllPixels) {
  bool done = false;
  EXPECT_EQ(Printed([&] { done = sensor().RegisterInitialize(kDriveMode00); }),
            "273 init successful\n");
  EXPECT_TRUE(done);
  EXPECT_THAT(Programming(),
              ElementsAreArray(kPrepare + kFixedSettings + kFullCrop + kFullTiming +
                               Lines{kFullTRow, "EXP_DELAY = 0x0000046d", "ROI_OFFSET = 0x00000000",
                                     "STRIP_IMAGE_WIDTH = 0x000005b0",
                                     "STRIP_IMAGE_HEIGHT = 0x00000440", "300D = 00"} +
                               kGoLive));
  EXPECT_EQ(sensor().roi_width(), 1456u);
  EXPECT_EQ(sensor().roi_height(), 1088u);
}

TEST_F(Imx273, InitialisesReduced) {
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode11)); }),
            "273 init successful\n");
  EXPECT_THAT(Programming(),
              ElementsAreArray(kPrepare + kFixedSettings + kNoCrop + kReducedTiming +
                               Lines{kReducedTRow, "EXP_DELAY = 0x0000024d",
                                     "ROI_OFFSET = 0x06000000", "STRIP_IMAGE_WIDTH = 0x000002d8",
                                     "STRIP_IMAGE_HEIGHT = 0x00000220", "300D = 11"} +
                               kGoLive));
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode11);
  EXPECT_EQ(sensor().roi_width(), 728u);
  EXPECT_EQ(sensor().roi_height(), 544u);
}

TEST_F(Imx273, InitialisedInMode22ItHasTheFullRowTime) {
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode22)); });
  EXPECT_THAT(Programming(),
              ElementsAreArray(kPrepare + kFixedSettings + kNoCrop + kReducedTiming +
                               Lines{kFullTRow, "EXP_DELAY = 0x0000024d", "ROI_OFFSET = 0x00000000",
                                     "STRIP_IMAGE_WIDTH = 0x000002d8",
                                     "STRIP_IMAGE_HEIGHT = 0x00000220", "300D = 22"} +
                               kGoLive));
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode22);
}

TEST_F(Imx273, AnyNonZeroModeInitialisesReduced) {
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(ReadoutDriveMode{0x01})); });
  EXPECT_EQ(Get(fpga::SENSOR_TIMING) >> 5, 217u);
  EXPECT_EQ(Chip(0x300D), 0x01);
  EXPECT_EQ(sensor().roi_width(), 728u);
}

std::string InitError(const std::string& reg) { return "init error 0x" + reg + "\n"; }

TEST_F(Imx273, EveryFailureOfTheFullInitialisationHasItsText) {
  const auto text = [](const std::string& reg, int time) -> std::string {
    const bool second_line = time == 1;
    if (reg == "3300") {
      return std::string("0x3300 write roi init Abnormal communication\n") +
             "line init Abnormal communication\n" +
             (second_line ? "" : "init error SetCropLine 1\n");
    }
    if (reg == "3310" || reg == "3311") {
      return "0x" + reg + " write SetCropLine Abnormal communication\ninit error SetCropLine 1\n";
    }
    if (reg == "3312" || reg == "3313") {
      return "0x" + reg + " write SetCropLine Abnormal communication\n";
    }
    if (reg >= "3314" && reg <= "3317") {
      return "0x" + reg + " write SetCropSize Abnormal communication\n";
    }
    return InitError(reg == "3254" ? "3054" : reg);
  };
  FailEveryWrite([&] { return sensor().RegisterInitialize(kDriveMode00); }, text);
}

TEST_F(Imx273, EveryFailureOfTheReducedInitialisationNamesItsRegister) {
  FailEveryWrite(
      [&] { return sensor().RegisterInitialize(kDriveMode11); },
      [](const std::string& reg, int) { return InitError(reg == "3254" ? "3054" : reg); });
}

TEST_F(Imx273, InitialisationWithoutAnFpgaFails) {
  devices().fpga_logic_.reset();
  EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00));
  EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode00));
  Printed([&] { EXPECT_FALSE(sensor().SetROI(0, 0, 100, 100)); });
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(Imx273, InitialisationOfAnAbsentChipFailsAtTheFirstWrite) {
  ASSERT_EQ(tessaline_board_chip_present("sensor", 0), 0);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00)); }),
            "init error 0x3000\n");
}

// --- Mode switch ---------------------------------------------------------------------------

const Lines kEnterStandby{"CMOS_TIMING_CTRL = 0x00000004", "sleep 100", "3000 = 01"};

TEST_F(Imx273, SwitchesToAllPixels) {
  Enter(kDriveMode11);
  SetChip(0x3012, 0xF7);
  Set(fpga::SENSOR_TIMING, 20);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode00)); }), "");
  EXPECT_THAT(
      Programming(),
      ElementsAreArray(
          kEnterStandby + Lines{"300D = 00"} + kFullCrop + kFullTiming + kLeaveStandby +
          Lines{kFullTRow, "STRIP_IMAGE_WIDTH = 0x000005b0", "STRIP_IMAGE_HEIGHT = 0x00000440",
                "EXP_DELAY = 0x0000046d", "ROI_OFFSET = 0x00000000", "sleep 100000"}));
}

Lines ReducedSwitch(const char* mode, const char* roi_offset) {
  return kEnterStandby + kNoCrop +
         Lines{mode, "3010 = 4A", "3011 = 02", "3012 ?", "3012 = F0", "3014 = DA", "3015 = 00"} +
         kLeaveStandby +
         Lines{kReducedTRow,
               "STRIP_IMAGE_WIDTH = 0x000002d8",
               "STRIP_IMAGE_HEIGHT = 0x00000220",
               "EXP_DELAY = 0x0000024d",
               roi_offset,
               "sleep 100000"};
}

TEST_F(Imx273, SwitchesToHalfSize) {
  SetChip(0x3012, 0xF7);
  Set(fpga::SENSOR_TIMING, 20);
  EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11));
  EXPECT_THAT(Programming(),
              ElementsAreArray(ReducedSwitch("300D = 11", "ROI_OFFSET = 0x06000000")));
}

TEST_F(Imx273, SwitchesToMode22WithItsOwnRegion) {
  SetChip(0x3012, 0xF7);
  Set(fpga::SENSOR_TIMING, 20);
  Printed([&] { sensor().SetROI(8, 8, 400, 300); });
  tessaline_board_transcript_clear();
  EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode22));
  EXPECT_THAT(Programming(),
              ElementsAreArray(ReducedSwitch("300D = 22", "ROI_OFFSET = 0x00000000")));
  EXPECT_EQ(sensor().roi_width(), 728u);
  EXPECT_EQ(sensor().roi_height(), 544u);
  EXPECT_EQ(sensor().roi_x(), 8u);
}

TEST_F(Imx273, RefusesAnUnknownModeButRecordsIt) {
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(ReadoutDriveMode{0x33})); }),
            "SetDriveMode invalid parameter\n");
  EXPECT_EQ(sensor().read_out_drive_mode(), ReadoutDriveMode{0x33});
  EXPECT_EQ(sensor().roi_width(), 1456u);
  EXPECT_THAT(Events(), IsEmpty());
}

std::string ModeError(const std::string& reg, int time) {
  if (reg == "3000") {
    return time == 0 ? "Fail to enter standby mode\n" : "Failed to exit standby mode\n";
  }
  return "0x" + reg + " write SetDriveMode Abnormal communication\n";
}

TEST_F(Imx273, EveryFailureOfAReducedSwitchNamesItsRegister) {
  for (const ReadoutDriveMode mode : {kDriveMode11, kDriveMode22}) {
    FailEveryWrite([&] { return sensor().SetReadoutDriveMode(mode); }, ModeError);
  }
}

TEST_F(Imx273, EveryFailureOfAFullSwitchHasItsText) {
  FailEveryWrite([&] { return sensor().SetReadoutDriveMode(kDriveMode00); },
                 [](const std::string& reg, int time) -> std::string {
                   if (reg == "3300") {
                     return std::string("0x3300 write roi init Abnormal communication\n") +
                            "line init Abnormal communication\n" +
                            (time == 1 ? "" : "init error SetCropLine 1\n");
                   }
                   if (reg == "3310" || reg == "3311") {
                     return "0x" + reg +
                            " write SetCropLine Abnormal communication\ninit error SetCropLine 1\n";
                   }
                   if (reg == "3312" || reg == "3313") {
                     return "0x" + reg + " write SetCropLine Abnormal communication\n";
                   }
                   if (reg >= "3314" && reg <= "3317") {
                     return "0x" + reg + " write SetCropSize Abnormal communication\n";
                   }
                   return ModeError(reg, time);
                 });
}

TEST_F(Imx273, AFailedSwitchLeavesTheChipInStandby) {
  FailAccess(1);
  Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode11)); });
  EXPECT_EQ(Chip(0x3000), 1);
}

// --- Region of interest --------------------------------------------------------------------

TEST_F(Imx273, ProgramsARegion) {
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(0x110, 0x120, 0x234, 0x145)); }),
            "entern setroi!\nOpenROI1 successful !\n");
  EXPECT_THAT(Programming(),
              ElementsAre("3300 ?", "3300 = 01", "3310 = 10", "3311 ?", "3311 = 01", "3314 = 34",
                          "3315 ?", "3315 = 02", "3300 ?", "3300 = 03", "3312 = 20", "3313 ?",
                          "3313 = 01", "3316 = 45", "3317 ?", "3317 = 01", "3010 = 6F", "3011 = 01",
                          "STRIP_IMAGE_WIDTH = 0x00000234", "STRIP_IMAGE_HEIGHT = 0x00000145",
                          "EXP_DELAY = 0x00000172"));
}

TEST_F(Imx273, ARegionOfNoHeightSwitchesCroppingOff) {
  SetChip(0x3300, 0x0F);
  SetChip(0x3012, 0x9F);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(1, 2, 640, 0)); }), "entern setroi!\n");
  EXPECT_THAT(Programming(),
              ElementsAre("3300 ?", "3300 = 0E", "3300 ?", "3300 = 0C", "3010 = 6A", "3011 = 04",
                          "3012 ?", "3012 = 90", "STRIP_IMAGE_WIDTH = 0x00000280",
                          "STRIP_IMAGE_HEIGHT = 0x00000000", "EXP_DELAY = 0x0000002d"));
}

struct Limit {
  ReadoutDriveMode mode;
  unsigned x, y, width, height;
  const char* printed;
};
constexpr Limit kLimits[]{
    {kDriveMode00, 0, 0, 1456, 1088, "entern setroi!\nOpenROI1 successful !\n"},
    {kDriveMode00, 456, 88, 1000, 1000, "entern setroi!\nOpenROI1 successful !\n"},
    {kDriveMode00, 1, 0, 1456, 1088,
     "entern setroi!\nIMX273::SetROIImpl error! left:1, width:1456\n"},
    {kDriveMode00, 0, 1, 1456, 1088,
     "entern setroi!\nIMX273::SetROIImpl error! top:1, height:1088\n"},
    {kDriveMode00, 1457, 1089, 0, 0,
     "entern setroi!\nIMX273::SetROIImpl error! left:1457, width:0\n"},
    // A sum that wraps is still too wide.
    {kDriveMode00, 0xFFFFFFFF, 0, 2, 10,
     "entern setroi!\nIMX273::SetROIImpl error! left:-1, width:2\n"},
    {kDriveMode11, 0, 0, 728, 544, "entern setroi!\nOpenROI1 successful !\n"},
    {kDriveMode11, 1, 0, 728, 544, "entern setroi!\nIMX273::SetROIImpl error! left:1, width:728\n"},
    {kDriveMode11, 0, 1, 728, 544, "entern setroi!\nIMX273::SetROIImpl error! top:1, height:544\n"},
    {kDriveMode22, 0, 0, 100, 100, "drive mode error\n"},
    {kDriveMode22, 0, 0, 100, 0, "drive mode error\n"},
};

TEST_F(Imx273, RegionsStayOnTheSensor) {
  for (const Limit& row : kLimits) {
    Enter(row.mode);
    const bool fits = std::string(row.printed).ends_with("successful !\n");
    EXPECT_EQ(
        Printed([&] { EXPECT_EQ(sensor().SetROI(row.x, row.y, row.width, row.height), fits); }),
        row.printed);
    if (!fits) {
      EXPECT_THAT(Events(), IsEmpty());
    }
    EXPECT_EQ(sensor().roi_x(), row.x);
    EXPECT_EQ(sensor().roi_y(), row.y);
    EXPECT_EQ(sensor().roi_width(), row.width);
    EXPECT_EQ(sensor().roi_height(), row.height);
  }
}

TEST_F(Imx273, AFailedCropLeavesTheRegionAndReportsSuccess) {
  struct Row {
    unsigned access;
    const char* printed;
  };
  constexpr Row kRows[]{
      {1,
       "0x3300 write roi init Abnormal communication\nline init Abnormal communication\n"
       "SetCropLine invalid parameter\n"},
      {2, "0x3310 write SetCropLine Abnormal communication\nSetCropLine invalid parameter\n"},
      {5, "0x3314 write SetCropSize Abnormal communication\nSetCropSize invalid parameter\n"},
      {10, "0x3312 write SetCropLine Abnormal communication\nSetCropLine invalid parameter\n"},
      {15, "0x3317 write SetCropSize Abnormal communication\nSetCropSize invalid parameter\n"},
  };
  for (const Row& row : kRows) {
    PowerUp();
    FailAccess(row.access);
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(0, 0, 100, 100)); }),
              std::string("entern setroi!\n") + row.printed);
    EXPECT_EQ(Programming().size(), row.access + kTries);
  }
}

TEST_F(Imx273, AFailedCropOffLeavesTheRegionAndReportsSuccess) {
  for (const unsigned access : {1u, 3u}) {
    PowerUp();
    FailAccess(access);
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetROI(0, 0, 100, 0)); }),
              "entern setroi!\n0x3300 write roi init Abnormal communication\n"
              "line close Abnormal communication\nSetCropLine invalid parameter\n");
  }
}

TEST_F(Imx273, FailedFrameLinesSpeakOfTheDriveMode) {
  struct Row {
    unsigned height;
    unsigned access;
    const char* printed;
  };
  constexpr Row kRows[]{
      {100, 16, "0x3010 write SetDriveMode Abnormal communication\n"},
      {100, 17, "0x3011 write SetDriveMode Abnormal communication\n"},
      {0, 4, "0x3010 write SetDriveMode Abnormal communication\n"},
      {0, 5, "0x3011 write SetDriveMode Abnormal communication\n"},
      {0, 7, "0x3012 write SetDriveMode Abnormal communication\n"},
  };
  for (const Row& row : kRows) {
    PowerUp();
    FailAccess(row.access);
    EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetROI(0, 0, 100, row.height)); }),
              std::string("entern setroi!\n") + row.printed);
  }
}

// --- With the capture threads running ------------------------------------------------------

class RunningImx273 : public Imx273 {
 protected:
  void SetUp() override {
    Imx273::SetUp();
    Printed([] { ASSERT_EQ(RegisterHardwareInit(), 0); });
    tessaline_board_transcript_clear();
  }

  // Sizes the video device is asked for, "640x480".
  static Lines FormatsAsked() {
    const std::string request = "VIDIOC_TRY_FMT ";
    Lines sizes;
    for (const std::string& event : EventsOf("video0")) {
      if (!event.starts_with(request)) continue;
      sizes.push_back(
          event.substr(request.size(), event.find(' ', request.size()) - request.size()));
    }
    return sizes;
  }
};

TEST_F(RunningImx273, VideoFormatFollowsRegionAndMode) {
  Printed([] {
    sensor().SetROI(0, 0, 640, 480);
    sensor().SetROI(0, 0, 640, 0);
    sensor().SetReadoutDriveMode(kDriveMode22);
    sensor().SetReadoutDriveMode(kDriveMode00);
  });
  EXPECT_THAT(FormatsAsked(), ElementsAre("640x480", "640x0", "728x544", "1456x1088"));
}

}  // namespace
}  // namespace VeltranoSDK
