// The effect of the image sensors' registers on the frames, seen by a plain capture program.

#include <gmock/gmock.h>

#include "SensorFramesFixture.h"

namespace {

using namespace board_test;  // NOLINT(google-build-using-namespace)

// --- GMAX2509

class GmaxFrames : public SensorFrames {
 protected:
  explicit GmaxFrames(const char* model = "K3820")
      : SensorFrames(model, {"921", "934"}, fpga::kZynqRegions) {}

  void SetUp() override {
    SensorFrames::SetUp();
    SetSensor({{0x00, 2}});
    SetSize(4800, 2048);  // 150 blocks of 28 pixels, which the FPGA counts as 32
  }

  static constexpr View kFull{
      .full_width = 4200, .full_height = 2048, .width = 4200, .height = 2048};
};

TEST_F(GmaxFrames, ShowTheWholeScene) { ExpectScene(kFull); }

TEST_F(GmaxFrames, AreFullSizeWhileNobodyHasSetOne) {
  SetSize(0, 0);
  ExpectScene(kFull);
}

TEST_F(GmaxFrames, RowsAreCroppedBySensorAndColumnsByTheFpga) {
  SetSensor(
      {{0x13, (500 + 4) & 0xFF}, {0x14, (500 + 4) >> 8}, {0x15, 1200 & 0xFF}, {0x16, 1200 >> 8}});
  Set(fpga::kReg.ISP_WIDTH, 3);  // skipped blocks
  SetSize(40 * 32, 1200);
  View view = kFull;
  view.left = 84;
  view.top = 500;
  view.width = 1120;
  view.height = 1200;
  ExpectScene(view);
}

TEST_F(GmaxFrames, ReducedReadoutTakesEveryOtherRowAndTheFpgaEveryOtherColumn) {
  SetSensor({{0x12, 1}});
  Set(fpga::kReg.ISP_CTRL, 2);
  SetSize(75 * 32, 1024);
  View view = kFull;
  view.width = 2100;
  view.height = 1024;
  view.column_step = view.row_step = 2;
  ExpectScene(view);
}

TEST_F(GmaxFrames, FlipsTurnColumnsAndRowsRound) {
  SetSensor({{0x01, 0x10}});
  View view = kFull;
  view.flip_x = true;
  ExpectScene(view);
}

TEST_F(GmaxFrames, VerticallyFlippedTheFirstRowIsBehindMoreDarkOnes) {
  View view = kFull;
  view.flip_y = true;
  for (const unsigned first : {24u, 4u}) {
    SetSensor({{0xDE, 0}, {0x13, first}});
    ExpectScene(view);
  }
  SetSensor({{0x13, 104}});
  view.top = 100;
  ExpectScene(view);
}

TEST_F(GmaxFrames, TheLineTimeBoundsTheFrameRate) {
  SetSensor({{0xA0, 152}, {0xA1, 0}});
  ExpectFramePeriod((2048 + 21) * 152 / 96.0);
}

TEST_F(GmaxFrames, ASlowerLineTimeMakesFewerFrames) {
  SetSensor({{0xA0, 12464 & 0xFF}, {0xA1, 12464 >> 8}});
  ExpectFramePeriod((2048 + 21) * 12464 / 96.0);
}

TEST_F(GmaxFrames, TheExposureUnitDoesNotFollowTheLineTime) {
  const unsigned fast = Brightest();
  SetSensor({{0xA1, 5}});
  EXPECT_EQ(Brightest(), fast);
}

TEST_F(GmaxFrames, GainMakesThemBrighter) {
  Set(fpga::kReg.EXP_TIME_1, 60);
  const unsigned plain = Brightest();
  SetSensor({{0xB5, 0x43}});
  EXPECT_NEAR(Brightest(), 3 * plain, 3);
}

TEST_F(GmaxFrames, NeedTheStreamBitAndAnEndOfTheProgramming) {
  SetSensor({{0x00, 0}});
  EXPECT_FALSE(Arrives());
  SetSensor({{0x00, 2}, {0xD0, 0x40}});
  EXPECT_FALSE(Arrives());
  SetSensor({{0xD0, 0}});
  EXPECT_TRUE(Arrives());
}

// One product always reads every other row of the array.
class HalfRowsFrames : public GmaxFrames {
 protected:
  HalfRowsFrames() : GmaxFrames("K3810") {}

  void SetUp() override {
    GmaxFrames::SetUp();
    SetSensor({{0x12, 1}});
    SetSize(4800, 1024);
  }

  static constexpr View kHalf{
      .full_width = 4200, .full_height = 1024, .width = 4200, .height = 1024};
};

TEST_F(HalfRowsFrames, ShowTheWholeSceneIn1024Rows) { ExpectScene(kHalf); }

TEST_F(HalfRowsFrames, TheFirstRowCountsRowsOfTheArray) {
  SetSensor({{0x13, (400 + 4) & 0xFF}, {0x14, (400 + 4) >> 8}});
  View view = kHalf;
  view.top = 200;
  ExpectScene(view);
}

TEST_F(HalfRowsFrames, ReducedReadoutHalvesTheColumnsOnly) {
  Set(fpga::kReg.ISP_CTRL, 2);
  SetSize(75 * 32, 1024);
  View view = kHalf;
  view.width = 2100;
  view.column_step = 2;
  ExpectScene(view);
}

class SuffixedFrames : public GmaxFrames {
 protected:
  SuffixedFrames() : GmaxFrames("K3810arm_rebuild") {}
};

TEST_F(SuffixedFrames, OnlyTheBareModelCodeHasHalfTheRows) { ExpectScene(kFull); }

// --- GSPRINT6502BSI

class GsprintFrames : public SensorFrames {
 protected:
  GsprintFrames() : SensorFrames("K3920", {"921", "934"}, fpga::kZynqRegions) {}

  void SetUp() override {
    SensorFrames::SetUp();
    SetSensor({{0x0000, 1}, {0x2400, 0x10}, {0x1C00, 1}});
    SetSize(2048, 1152);
  }

  static constexpr View kFull{
      .full_width = 2048, .full_height = 1152, .width = 2048, .height = 1152};
};

TEST_F(GsprintFrames, ShowTheWholeScene) { ExpectScene(kFull); }

TEST_F(GsprintFrames, RowsAreCroppedBySensorAndColumnsByTheFpga) {
  SetSensor({{0x0140, (300 + 4) & 0xFF}, {0x0141, (300 + 4) >> 8}});
  Set(fpga::kReg.ISP_WIDTH, 4);
  SetSize(1024, 600);
  View view = kFull;
  view.left = 128;
  view.top = 300;
  view.width = 1024;
  view.height = 600;
  ExpectScene(view);
}

TEST_F(GsprintFrames, SubsamplingHalvesBothDirections) {
  SetSensor({{0x0110, 1}});
  SetSize(1024, 576);
  View view = kFull;
  view.width = 1024;
  view.height = 576;
  view.column_step = view.row_step = 2;
  ExpectScene(view);
}

TEST_F(GsprintFrames, AFrameWiderThanTheReadoutStaysDarkThere) {
  SetSensor({{0x0110, 1}});
  View view = kFull;
  view.column_step = view.row_step = 2;
  ExpectScene(view);
}

TEST_F(GsprintFrames, TheLineTimeBoundsTheFrameRate) {
  const double lines = (1152 + 4) / 2 + 10;
  ExpectFramePeriod(lines * 17 / 15);
}

TEST_F(GsprintFrames, TheSlowLineTimeIsFiveTimesAsLong) {
  SetSensor({{0x0080, 0x68}, {0x0081, 1}});
  const double lines = (1152 + 4) / 2 + 10;
  ExpectFramePeriod(5 * lines * 17 / 15);
}

TEST_F(GsprintFrames, HighDynamicRangeKeepsTheBrightFromSaturating) {
  Set(fpga::kReg.EXP_TIME_1, 800);
  EXPECT_EQ(Brightest(), 255u);
  SetSensor({{0x0003, 1}});
  const unsigned brightest = Brightest();
  EXPECT_GT(brightest, 128u);
  EXPECT_LT(brightest, 255u);
}

TEST_F(GsprintFrames, NeedStreamOutputAndPower) {
  for (const unsigned address : {0x0000u, 0x2400u, 0x1C00u}) {
    const auto on = static_cast<unsigned>(tessaline_board_chip_get("sensor", address));
    SetSensor({{address, ~on & 0xFF}});
    EXPECT_FALSE(Arrives()) << address;
    SetSensor({{address, on}});
  }
  EXPECT_TRUE(Arrives());
}

// --- e2v Flash 4K

class E2vFrames : public SensorFrames {
 protected:
  E2vFrames() : SensorFrames("K4010", {"363", "364"}, fpga::kZynqMpRegions) {}

  void SetUp() override {
    SensorFrames::SetUp();
    BringUp();
    SetSize(4096, 1080);
    Set(fpga::kReg.EXP_TIME_1, 4500);  // 300 us, long enough to see ink
  }

  static void Send(const std::vector<std::uint8_t>& bytes) {
    const int fd = open("/dev/spidev0.0", O_RDWR);
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
  }

  static void BringUp() {
    SetSensor({{0x0008, 3}});
    usleep(500'000);
    Send({0xBB, 6, 3, 2, 1});
    SetSensor({{0x0063, 1}, {0x012F, 1}});
    usleep(500'000);
  }

  static constexpr View kFull{
      .full_width = 4096, .full_height = 1080, .width = 4096, .height = 1080};
};

TEST_F(E2vFrames, ShowTheWholeScene) { ExpectScene(kFull); }

TEST_F(E2vFrames, ARegionCountsFromItsUpdate) {
  SetSensor({{0x0034, 2}, {0x0035, 31}, {0x0024, 30}, {0x0025, 74}});
  ExpectScene(kFull);
  Send({0x82});
  SetSize(2048, 600);
  View view = kFull;
  view.left = 128;
  view.top = 240;
  view.width = 2048;
  view.height = 600;
  ExpectScene(view);
}

TEST_F(E2vFrames, ReducedReadoutHalvesBothDirectionsAtOnce) {
  SetSensor({{0x0031, 1}});
  SetSize(2048, 540);
  View view = kFull;
  view.width = 2048;
  view.height = 540;
  view.column_step = view.row_step = 2;
  ExpectScene(view);
}

TEST_F(E2vFrames, FlipTurnsTheRowsRound) {
  SetSensor({{0x0023, 4}});
  View view = kFull;
  view.flip_y = true;
  ExpectScene(view);
}

TEST_F(E2vFrames, BlankingBoundsTheFrameRate) {
  SetSensor({{0x0021, 1 + 127}});
  ExpectFramePeriod((1080 + 16) * 129 / 240.0);
}

TEST_F(E2vFrames, StopAndStart) {
  Send({0x88});
  EXPECT_FALSE(Arrives());
  Send({0x90});
  EXPECT_TRUE(Arrives());
}

TEST_F(E2vFrames, NeedTheOutput) {
  SetSensor({{0x012F, 0}});
  EXPECT_FALSE(Arrives());
}

// --- IMX252

class Imx252Frames : public SensorFrames {
 protected:
  explicit Imx252Frames(const char* model = "K3710")
      : SensorFrames(model, {"907", "934"}, fpga::kZynqRegions) {}

  void SetUp() override {
    SensorFrames::SetUp();
    SetSensor({{0x3000, 0}});
    SetSize(2064, 1544);
  }

  static constexpr View kFull{
      .full_width = 2064, .full_height = 1544, .width = 2064, .height = 1544};
};

TEST_F(Imx252Frames, ShowTheWholeScene) { ExpectScene(kFull); }

TEST_F(Imx252Frames, ReducedReadoutAtPowerUpHalvesBothDirections) {
  SetSensor({{0x300D, 0x11}});
  SetSize(1032, 772);
  View view = kFull;
  view.width = 1032;
  view.height = 772;
  view.column_step = view.row_step = 2;
  ExpectScene(view);
}

TEST_F(Imx252Frames, TheOtherReducedReadoutHalvesTheRowsOnly) {
  SetSensor({{0x300D, 0x02}, {0x3300, 3}, {0x3310, 8}, {0x3312, 4}});
  SetSize(2048, 768);
  View view = kFull;
  view.width = 2048;
  view.height = 768;
  view.left = 8;
  view.top = 8;
  view.row_step = 2;
  ExpectScene(view);
}

TEST_F(Imx252Frames, TheFrameLinesBoundTheFrameRate) { ExpectFramePeriod(1582 * 310 / 74.25); }

// --- Points of the boards that leave the reconstruction to the processor

class ShortPoints : public Imx252Frames {
 protected:
  ShortPoints() : Imx252Frames("K3710ch16arm_rebuild") {}
};

class FullPoints : public Imx252Frames {
 protected:
  FullPoints() : Imx252Frames("K3710arm_rebuild") {}
};

TEST_F(ShortPoints, HaveTwoBytesWhateverTheFlags) {
  Set(fpga::kReg.BR_CONT_MODE_A, 2);
  const auto bytes = FreshStrip();
  const StripHeader header = HeaderAt(bytes, 0);
  ASSERT_EQ(header.point_count, 2064u);
  const double y = BeltPosition(header.time_stamp);
  tessaline_row_point point{};
  std::memcpy(&point, &bytes[sizeof header + sizeof point * 1000], sizeof point);
  EXPECT_NEAR(point.row / 32.0, RowOf(kFull, 1000, y), 0.05);
}

TEST_F(FullPoints, StayWithoutSixteenChannels) { ExpectScene(kFull); }

}  // namespace
