// FpgaLogic25 on a ZynqMP board: the split timing word, and the same controls at
// other addresses.
#include "Devices/fpga/FpgaLogic25.h"
#include "Devices/fpga/FpgaLogicFixture.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;
using ::testing::ElementsAre;

class ZynqMpFpga : public FpgaLogicFixture {
 protected:
  ZynqMpFpga() : FpgaLogicFixture("K4010", kSeries25) {}
};

TEST_F(ZynqMpFpga, SetTRowReplacesTheUpperHalf) {
  Set(SENSOR_TIMING, 0xFFFFFFFF);
  EXPECT_TRUE(logic().SetTRow(0x10007));
  EXPECT_THAT(Accesses(),
              ElementsAre(Read(SENSOR_TIMING, 0xFFFFFFFF), Wrote(SENSOR_TIMING, 0x0007FFFF)));
}

TEST_F(ZynqMpFpga, SetTGesReplacesTheLowerHalf) {
  Set(SENSOR_TIMING, 0xFFFFFFFF);
  EXPECT_TRUE(logic().SetTGes(28));
  EXPECT_THAT(Accesses(),
              ElementsAre(Read(SENSOR_TIMING, 0xFFFFFFFF), Wrote(SENSOR_TIMING, 0xFFFF001C)));
}

TEST_F(ZynqMpFpga, SetTGesSpillsIntoTheRowTime) {
  EXPECT_TRUE(logic().SetTGes(0x10001));
  EXPECT_THAT(Accesses(), ElementsAre(Read(SENSOR_TIMING, 0), Wrote(SENSOR_TIMING, 0x10001)));
}

TEST_F(ZynqMpFpga, TheTimingFieldsMeetInTheMiddle) {
  Set(SENSOR_TIMING, 0);
  logic().SetTRow(0xFFFFFFFF);
  EXPECT_EQ(Get(SENSOR_TIMING), 0xFFFF0000u);
  Set(SENSOR_TIMING, 0xFFFFFFFF);
  logic().SetTRow(0);
  EXPECT_EQ(Get(SENSOR_TIMING), 0x0000FFFFu);
  Set(SENSOR_TIMING, 0);
  logic().SetTGes(0xFFFFFFFF);
  EXPECT_EQ(Get(SENSOR_TIMING), 0xFFFFFFFFu);
  logic().SetTGes(0);
  EXPECT_EQ(Get(SENSOR_TIMING), 0xFFFF0000u);
}

TEST_F(ZynqMpFpga, EveryBlockIsReached) {
  EXPECT_TRUE(logic().SetLaserOffsetTime(1));
  EXPECT_TRUE(logic().SetTriSpacing(4000));
  EXPECT_TRUE(logic().SetExtinWidth(10));
  EXPECT_TRUE(logic().SetStripWriteMemMode(SampleStrategy{1}));
  EXPECT_TRUE(logic().SetRisThresholdValue(10));
  EXPECT_FALSE(logic().ResetCallbackLostNum());
  EXPECT_EQ(logic().SetObOffset(4), 0u);
  EXPECT_TRUE(logic().SetStripSelectorImgWidth(4096));
  EXPECT_TRUE(logic().EnableCollectModeSignal());
  EXPECT_EQ(Get(LASER_OFFSET_TIME), 50u);
  EXPECT_EQ(Get(TRI_SPACING), 200000u);
  EXPECT_EQ(Get(EXTIN_WIDTH), 500u);
  EXPECT_EQ(Get(STRIP_WRIMEM_STRATEGY), 1u);
  EXPECT_EQ(Get(STRIP_WRIMEM_STRATEGY_WIDTH), 1u);
  EXPECT_EQ(Get(RIS_THRESHOLD), 10u);
  EXPECT_EQ(Get(OB_OFFSET), 4u);
  EXPECT_EQ(Get(STRIP_SELECTOR_IMAGE_WIDTH), 4096u);
  EXPECT_EQ(Get(StreamSwitchPort(Block::kImage2, 15)), kStreamSwitchPortOff);
  EXPECT_EQ(Get(StreamSwitchPort(Block::kImage4, 0)), 1u);
}

}  // namespace
}  // namespace tessaline_test
