// The IMX273 driver on a K3610 board: what it writes to the chip and to the FPGA, in which order,
// and what it prints if the bus fails.
#include <bit>

#include "Devices/sensor/imx273/Imx273Test.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

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

// The crop line's enable bit, then its position. The size keeps the bits above it.
const Lines kFullCrop{"3300 ?",    "3300 = 01", "3310 = 00", "3311 ?",    "3311 = 00", "3314 = B0",
                      "3315 ?",    "3315 = 05", "3300 ?",    "3300 = 03", "3312 = 00", "3313 ?",
                      "3313 = 00", "3316 = 40", "3317 ?",    "3317 = 04"};

const Lines kFullTiming{"3010 = 6A", "3011 = 04", "3012 = 00", "3014 = EE", "3015 = 00"};

const Lines kNoCrop{"3310 = 00", "3311 = 00", "3312 = 00", "3313 = 00", "3314 = 00",
                    "3315 = 00", "3316 = 00", "3317 = 00", "3300 = 00"};

const Lines kReducedTiming{"3010 = 4A", "3011 = 02", "3012 = 00", "3014 = DA", "3015 = 00"};

const Lines kGoLive = kLeaveStandby + Lines{"sleep 100000", "301D = 01"};

// T_ROW 237 and 217 from bit 5 up, T_GES 20 below.
constexpr char kFullTRow[] = "SENSOR_TIMING = 0x00001db4";
constexpr char kReducedTRow[] = "SENSOR_TIMING = 0x00001b34";

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

TEST_F(Imx273, VersionReadsTheTypesLowPartFirst) {
  sensor().GetSensorVer(0);
  EXPECT_THAT(Programming(), ElementsAre("3148 ?", "3149 ?"));
  tessaline_board_transcript_clear();
  sensor().GetSensorVer(1);
  EXPECT_THAT(Programming(), ElementsAre("3149 ?"));
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

TEST_F(Imx273, ADirectionAboveThreeReachesTheBitsAboveTheFlip) {
  SetChip(0x300E, 0xA3);
  EXPECT_TRUE(sensor().SetReadoutDriveDirection(ReadoutDriveDirection{0x46}));
  EXPECT_THAT(Programming(), ElementsAre("300E ?", "300E = E6"));
  EXPECT_EQ(sensor().read_out_drive_direction(), ReadoutDriveDirection{0x46});
}

// A failed read looks the same as a register of zeros.
TEST_F(Imx273, BitsThatCannotBeReadAreWrittenAsZero) {
  SetChip(0x3205, 0x54);
  FailAccess(0);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().SetGain(60)); }), "");
  EXPECT_THAT(Programming(), ElementsAreArray(kFailed + Lines{"3205 = 01", "3204 = E0"}));

  SetChip(0x300E, 0xA7);
  tessaline_board_transcript_clear();
  FailAccess(0);
  EXPECT_TRUE(sensor().SetReadoutDriveDirection(kHorizontalFlip));
  EXPECT_THAT(Programming(), ElementsAreArray(kFailed + Lines{"300E = 02"}));
}

TEST_F(Imx273, FailedFlipSpeaksOfARead) {
  FailAccess(1);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveDirection(kBothFlip)); }),
            "0x300E read SetReverseMode Abnormal communication\n");
  EXPECT_EQ(sensor().read_out_drive_direction(), kBothFlip);
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
  EXPECT_EQ(Get(fpga::kReg.SENSOR_TIMING) >> 5, 217u);
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

TEST_F(Imx273, FullInitialisationOutOfMode22IsRefusedAtTheCropLine) {
  Enter(kDriveMode22);
  Set(fpga::kReg.SENSOR_TIMING, 0);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00)); }),
            "drive mode error\ninit error SetCropLine 1\n");
  EXPECT_THAT(Programming(), ElementsAreArray(kPrepare + kFixedSettings));
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode22);
  EXPECT_EQ(sensor().roi_width(), 728u);
}

TEST_F(Imx273, AFailedInitialisationLeavesTheRecords) {
  Printed([&] { ASSERT_TRUE(sensor().RegisterInitialize(kDriveMode11)); });
  const unsigned last_before_the_records = IndexOf("3015 = 00");
  const unsigned first_after = IndexOf("300D = 11");

  PowerUp();
  FailAccess(last_before_the_records);
  Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode11)); });
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode00);
  EXPECT_EQ(sensor().roi_width(), 1456u);
  EXPECT_EQ(sensor().roi_height(), 1088u);

  // By then the FPGA also has the mode.
  PowerUp();
  FailAccess(first_after);
  Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode11)); });
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode11);
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
  Set(fpga::kReg.SENSOR_TIMING, 20);
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
  Set(fpga::kReg.SENSOR_TIMING, 20);
  EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode11));
  EXPECT_THAT(Programming(),
              ElementsAreArray(ReducedSwitch("300D = 11", "ROI_OFFSET = 0x06000000")));
}

TEST_F(Imx273, SwitchesToMode22WithItsOwnRegion) {
  SetChip(0x3012, 0xF7);
  Set(fpga::kReg.SENSOR_TIMING, 20);
  Printed([&] { sensor().SetROI(8, 8, 400, 300); });
  tessaline_board_transcript_clear();
  EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode22));
  EXPECT_THAT(Programming(),
              ElementsAreArray(ReducedSwitch("300D = 22", "ROI_OFFSET = 0x00000000")));
  EXPECT_EQ(sensor().roi_width(), 728u);
  EXPECT_EQ(sensor().roi_height(), 544u);
  EXPECT_EQ(sensor().roi_x(), 8u);
}

TEST_F(Imx273, AFailedSwitchToMode22LeavesTheRegion) {
  Printed([&] { ASSERT_TRUE(sensor().SetReadoutDriveMode(kDriveMode22)); });
  const auto accesses = static_cast<unsigned>(Accesses().size());
  // The first and the last access. Both are to the standby register.
  for (const unsigned access : {0u, accesses - 1}) {
    PowerUp();
    Printed([&] { sensor().SetROI(8, 8, 400, 300); });
    FailAccess(access);
    Printed([&] { EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode22)); });
    EXPECT_EQ(sensor().roi_width(), 400u);
    EXPECT_EQ(sensor().roi_height(), 300u);
    EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode22);
  }
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

}  // namespace
}  // namespace VeltranoSDK
