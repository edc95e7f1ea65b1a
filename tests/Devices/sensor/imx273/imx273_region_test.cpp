// The IMX273's region of interest: the crop operations, what a region writes to the chip and the
// FPGA, and the video format that follows it.
#include "Devices/sensor/imx273/Imx273Test.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

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
  unsigned low;          // the low register; the high one follows
  unsigned kept;         // bits kept in the high register
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

// A failed read looks the same as a register of zeros.
TEST_F(Imx273, CropBitsThatCannotBeReadAreWrittenAsZero) {
  SetChip(0x3300, 0xF0);
  SetChip(0x3313, 0xFF);
  FailAccess(0);
  EXPECT_EQ(sensor().SetCropLine(0, 1, 0xABCD), 0);
  EXPECT_THAT(Programming(),
              ElementsAreArray(kFailed + Lines{"3300 = 02", "3312 = CD", "3313 ?", "3313 = FB"}));
  tessaline_board_transcript_clear();
  FailAccess(3);
  EXPECT_EQ(sensor().SetCropLine(0, 1, 0xABCD), 0);
  EXPECT_THAT(Programming(), ElementsAreArray(Lines{"3300 ?", "3300 = 02", "3312 = CD"} + kFailed +
                                              Lines{"3313 = 0B"}));
  tessaline_board_transcript_clear();
  FailAccess(0);
  EXPECT_EQ(sensor().SetCropLine(1, 0, 0), 0);
  EXPECT_THAT(Programming(), ElementsAreArray(kFailed + Lines{"3300 = 00"}));
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
    // The limits also apply without a height.
    {kDriveMode00, 0, 1089, 0, 0, "entern setroi!\nIMX273::SetROIImpl error! top:1089, height:0\n"},
    {kDriveMode00, 0, 1088, 640, 0, "entern setroi!\n"},
    {kDriveMode11, 0, 545, 0, 0, "entern setroi!\nIMX273::SetROIImpl error! top:545, height:0\n"},
    {kDriveMode11, 0, 544, 640, 0, "entern setroi!\n"},
    // The sum wraps around, but the region is still too wide.
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
    const bool fits = std::string(row.printed).find("error") == std::string::npos;
    EXPECT_EQ(
        Printed([&] { EXPECT_EQ(sensor().SetROI(row.x, row.y, row.width, row.height), fits); }),
        row.printed);
    EXPECT_EQ(Events().empty(), !fits);
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
    EXPECT_EQ(Programming().size(), access + kTries);
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
    EXPECT_EQ(Programming().size(), row.access + kTries);
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

  static Lines StepsAroundTheFormat() {
    return OrderOf({"EXP_DELAY", "ROI_OFFSET", "VIDIOC_TRY_FMT", "sleep 100000"});
  }
};

TEST_F(RunningImx273, VideoFormatFollowsRegionAndMode) {
  Printed([] {
    sensor().SetROI(0, 0, 640, 480);
    sensor().SetROI(0, 0, 640, 0);
    sensor().SetReadoutDriveMode(kDriveMode11);
    sensor().SetReadoutDriveMode(kDriveMode00);
    sensor().SetReadoutDriveMode(kDriveMode22);
  });
  EXPECT_THAT(FormatsAsked(), ElementsAre("640x480", "640x0", "728x544", "1456x1088", "728x544"));
}

// The drive mode is written to ROI_OFFSET.
TEST_F(RunningImx273, AModeSwitchAsksForItsFormatBeforeTheLastPause) {
  for (const ReadoutDriveMode mode : {kDriveMode11, kDriveMode22, kDriveMode00}) {
    tessaline_board_transcript_clear();
    Printed([&] { EXPECT_TRUE(sensor().SetReadoutDriveMode(mode)); });
    EXPECT_THAT(StepsAroundTheFormat(),
                ElementsAre("EXP_DELAY", "ROI_OFFSET", "VIDIOC_TRY_FMT", "sleep 100000"))
        << mode;
  }
}

TEST_F(RunningImx273, ARegionAsksForItsFormatAfterTheExposureDelay) {
  for (const unsigned height : {480u, 0u}) {
    tessaline_board_transcript_clear();
    Printed([&] { EXPECT_TRUE(sensor().SetROI(0, 0, 640, height)); });
    EXPECT_THAT(StepsAroundTheFormat(), ElementsAre("EXP_DELAY", "VIDIOC_TRY_FMT")) << height;
  }
}

TEST_F(RunningImx273, AFailedRegionAsksForNoFormat) {
  struct Row {
    unsigned height;
    unsigned access;
  };
  // The last access with a region and without one, and the first crop line of each.
  for (const Row& row : {Row{480, 17}, Row{0, 7}, Row{480, 1}, Row{0, 1}}) {
    FailAccess(row.access);
    Printed([&] { sensor().SetROI(0, 0, 640, row.height); });
  }
  EXPECT_THAT(FormatsAsked(), IsEmpty());
}

TEST_F(RunningImx273, InitialisationAsksForNoFormat) {
  for (const ReadoutDriveMode mode : {kDriveMode00, kDriveMode11, kDriveMode22}) {
    Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(mode)); });
  }
  EXPECT_THAT(FormatsAsked(), IsEmpty());
}

}  // namespace
}  // namespace VeltranoSDK
