// FpgaLogic on a Zynq-7000 board: sensor and laser controls, where the registers
// lie, what is logged, and which class a series gets.
#include <map>

#include "Devices/FpgaLogic25.h"
#include "Devices/FpgaRegister.h"
#include "FpgaLogicFixture.h"
#include "tessaline/log.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

// First in the file and without the fixture: nothing may have selected a series in
// this process.
TEST(FpgaLogicWithoutASeries, ReachesNoRegister) {
  if (SeriesLogicFactory::GetSeriesLogicInstance() != nullptr) {
    GTEST_SKIP() << "a series is selected already in this process";
  }
  FpgaLogic logic;
  EXPECT_EQ(logic.GetTriSpacing(), kAllOnes);
  EXPECT_FALSE(logic.SetExposureNum(1));
}

const std::vector<Rule> kSensorRules{
    {.name = "SetCmosSensorWorkModeReadsForNothing",
     .given = {{CMOS_WORK_MODE, 0xFF}},
     .call = [](auto& f) { return f.SetCmosSensorWorkMode(CameraSensorMode{1}); },
     .steps = {Read(CMOS_WORK_MODE, 0xFF), Wrote(CMOS_WORK_MODE, 3)}},
    {.name = "SetCmosTimingControl",
     .given = {{CMOS_TIMING_CTRL, 0xFF}},
     .call = [](auto& f) { return f.SetCmosTimingControl(kOff, kOn); },
     .steps = {Wrote(CMOS_TIMING_CTRL, 4)}},
    {.name = "SetCmosTimingControlDoesNotMask",
     .call = [](auto& f) { return f.SetCmosTimingControl(STATE{2}, STATE{3}); },
     .steps = {Wrote(CMOS_TIMING_CTRL, 0xE)}},
    {.name = "SetTRowKeepsFiveBits",
     .given = {{SENSOR_TIMING, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetTRow(217); },
     .steps = {Read(SENSOR_TIMING, 0xFFFFFFFF), Wrote(SENSOR_TIMING, 217 << 5 | 0x1F)}},
    {.name = "SetTGesReplacesFiveBits",
     .given = {{SENSOR_TIMING, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetTGes(16); },
     .steps = {Read(SENSOR_TIMING, 0xFFFFFFFF), Wrote(SENSOR_TIMING, 0xFFFFFFF0)}},
    {.name = "SetTGesSpillsIntoTheRowTime",
     .call = [](auto& f) { return f.SetTGes(0x21); },
     .steps = {Read(SENSOR_TIMING, 0), Wrote(SENSOR_TIMING, 0x21)}},
    {.name = "CameraReset",
     .given = {{CMOS_WORK_MODE, 0x6}},
     .call = [](auto& f) { return f.CameraReset(); },
     .steps = {Read(CMOS_WORK_MODE, 6), Wrote(CMOS_WORK_MODE, 7), Slept(50000),
               Wrote(CMOS_WORK_MODE, 6), Slept(50000), Wrote(CMOS_WORK_MODE, 7), Slept(50000)}},
    {.name = "CameraResetWaitsForTheE2vFlash4k",
     .given = {{CMOS_WORK_MODE, 0x3}},
     .call = [](auto& f) { return f.CameraReset(); },
     .steps = {Slept(5000000), Read(CMOS_WORK_MODE, 3), Wrote(CMOS_WORK_MODE, 3), Slept(50000),
               Wrote(CMOS_WORK_MODE, 2), Slept(50000), Wrote(CMOS_WORK_MODE, 3), Slept(50000)},
     .sensor = kE2vFlash4k},
    {.name = "CameraResetOfTheGsprint6502IsOneEdge",
     .given = {{CMOS_WORK_MODE, 0x2}},
     .call = [](auto& f) { return f.CameraReset(); },
     .steps = {Read(CMOS_WORK_MODE, 2), Wrote(CMOS_WORK_MODE, 3), Slept(50000)},
     .sensor = kGSPRINT6502BSI},
    {.name = "SetLaserModeClearsEverythingAboveBitOne",
     .given = {{LASER_CTRL, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetLaserMode(kLaserMode1); },
     .steps = {Read(LASER_CTRL, 0xFFFFFFFF), Wrote(LASER_CTRL, 3)}},
    {.name = "SetLaserModeTakesBitZeroOfItsValue",
     .given = {{LASER_CTRL, 0x2}},
     .call = [](auto& f) { return f.SetLaserMode(LaserMode{6}); },
     .steps = {Read(LASER_CTRL, 2), Wrote(LASER_CTRL, 0)}},
    {.name = "GetLaserMode",
     .given = {{LASER_CTRL, 0x2}},
     .call = [](auto& f) { return f.GetLaserMode(); },
     .result = 1,
     .steps = {Read(LASER_CTRL, 2)}},
    {.name = "SetLaserOffsetTimeInMicroseconds",
     .call = [](auto& f) { return f.SetLaserOffsetTime(9); },
     .steps = {Wrote(LASER_OFFSET_TIME, 450)}},
    {.name = "GetFPGASeries",
     .given = {{FPGA_VERSION, 0x12345678}},
     .call = [](auto& f) { return f.GetFPGASeries(); },
     .result = 0x1234,
     .steps = {Read(FPGA_VERSION, 0x12345678)}},
    {.name = "GetFPGAVersion",
     .given = {{FPGA_VERSION, 0x12345678}},
     .call = [](auto& f) { return f.GetFPGAVersion(); },
     .result = 0x5678,
     .steps = {Read(FPGA_VERSION, 0x12345678)}},
};

TEST_P(FpgaRule, Holds) { Check(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Sensor, FpgaRule, ::testing::ValuesIn(kSensorRules), FpgaRule::Name);

// --- Where the registers lie --------------------------------------------------------------

TEST(FpgaRegister, HasTheRegionsOfTheBoardFamily) {
  const FpgaRegisterZynq zynq;
  EXPECT_EQ(zynq.GetImageBaseAddress(), 0x43C00000u);
  EXPECT_EQ(zynq.GetRebuildBaseAddress(), 0x83C00000u);
  const FpgaRegisterZynqMp zynqmp;
  EXPECT_EQ(zynqmp.GetImageBaseAddress(), 0xA0000000u);
  EXPECT_EQ(zynqmp.GetRebuildBaseAddress(), 0xB0000000u);
}

std::vector<std::string> logged;

void Remember(log_Event* event) {
  char text[128];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  logged.emplace_back(text);
}

class Logged : public ZynqFpga {
 protected:
  void SetUp() override {
    ZynqFpga::SetUp();
    log_set_quiet(true);
    static const int added = log_add_callback(Remember, nullptr, LOG_TRACE);
    ASSERT_EQ(added, 0);
    logged.clear();
  }
};

TEST_F(Logged, EveryBlockIsAccessedAtItsAddress) {
  logic().GetLaserMode();
  logic().GetPolarity();
  logic().GetStripDelay();
  logic().GetReverseMode();
  logic().SetStripWriteMemMode(SampleStrategy{});
  logic().GetRisThresholdValue();
  logic().GetCallbackLostNum();
  logic().SetObOffset(0);
  logic().SetStripSelectorImgWidth(0);
  std::erase_if(logged, [](const std::string& line) { return !line.starts_with("fpga_"); });
  EXPECT_THAT(logged,
              ::testing::ElementsAre("fpga_read_addr: 43c00028", "fpga_read_addr: 43c10000",
                                     "fpga_read_addr: 43c20008", "fpga_read_addr: 43c3001c",
                                     "fpga_write_addr: 83c00040", "fpga_write_addr: 83c50064",
                                     "fpga_read_addr: 83c10000", "fpga_read_addr: 83c2000c",
                                     "fpga_write_addr: 83c40018", "fpga_write_addr: 83c60010"));
}

TEST_F(Logged, MethodsLogTheirName) {
  logic().SetTriSpacing(4000);
  EXPECT_THAT(logged,
              ::testing::ElementsAre("SetTriSpacing", "GetTriMode", "fpga_read_addr: 43c10004",
                                     "fpga_write_addr: 43c10008"));
}

TEST_F(Logged, SomeMethodsLogNothing) {
  logic().SetBaseThreshold(1);
  logic().SetCollectMode2(kCollectImage);
  logic().SetEnhanceGain(1);
  EXPECT_THAT(logged,
              ::testing::ElementsAre("fpga_write_addr: 83c10014", "fpga_write_addr: 83c40000",
                                     "fpga_read_addr: 83c40020", "fpga_write_addr: 83c40020"));
}

// --- Which class --------------------------------------------------------------------------

TEST_F(ZynqFpga, TheFactoryKnowsEverySeries) {
  const std::map<int, bool> has_the_split_timing_word{
      {0, false}, {1, false}, {2, false}, {3, false}, {4, true},   {5, false},
      {6, true},  {7, false}, {8, true},  {9, false}, {10, false}, {-1, false}};
  for (const auto& [series, split] : has_the_split_timing_word) {
    const auto made = FpgaLogicFactory::CreateFpgaLogicBySeries(static_cast<SeriesNumber>(series));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<FpgaLogic25>(made) != nullptr, split) << series;
  }
}

}  // namespace
}  // namespace tessaline_test
