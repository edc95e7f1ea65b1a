// FpgaLogic on a Zynq-7000 board: sensor and laser controls, the register regions of
// the families, and which class a series gets.
#include <map>

#include "Devices/fpga/FpgaLogic25.h"
#include "Devices/fpga/FpgaLogicFixture.h"
#include "Devices/fpga/FpgaRegister.h"
#include "support/LoggedLines.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

// First in the file and without the fixture: nothing may have selected a series in
// this process.
TEST(FpgaLogicWithoutASeries, ReachesNoRegister) {
  ASSERT_EQ(SeriesLogicFactory::GetSeriesLogicInstance(), nullptr);
  const LoggedErrors errors;
  FpgaLogic logic;
  EXPECT_EQ(logic.GetTriSpacing(), kAllOnes);
  EXPECT_FALSE(logic.SetExposureNum(1));
  EXPECT_THAT(errors.lines(),
              ::testing::ElementsAre("Neighbours.cpp: FpgaLogic: no product is selected, "
                                     "call GetLibVersion first"));
}

const std::vector<Rule> kSensorRules{
    {.name = "SetCmosSensorWorkModeReadsForNothing",
     .given = {{CMOS_WORK_MODE, 0xFF}},
     .call = [](auto& f) { return f.SetCmosSensorWorkMode(CameraSensorMode{1}); },
     .steps = {Read(CMOS_WORK_MODE, 0xFF), Wrote(CMOS_WORK_MODE, 3)}},
    {.name = "SetCmosSensorWorkModeForcesBitOneAlone",
     .call = [](auto& f) { return f.SetCmosSensorWorkMode(CameraSensorMode{0}); },
     .steps = {Read(CMOS_WORK_MODE, 0), Wrote(CMOS_WORK_MODE, 2)}},
    {.name = "SetCmosSensorWorkModeDoesNotMask",
     .call = [](auto& f) { return f.SetCmosSensorWorkMode(CameraSensorMode{0xFFFFFFFD}); },
     .steps = {Read(CMOS_WORK_MODE, 0), Wrote(CMOS_WORK_MODE, 0xFFFFFFFF)}},
    {.name = "SetCmosTimingControlFirst",
     .call = [](auto& f) { return f.SetCmosTimingControl(kOn, kOff); },
     .steps = {Wrote(CMOS_TIMING_CTRL, 1)}},
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
    {.name = "CameraResetMovesBitZeroAlone",
     .given = {{CMOS_WORK_MODE, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.CameraReset(); },
     .steps = {Read(CMOS_WORK_MODE, 0xFFFFFFFF), Wrote(CMOS_WORK_MODE, 0xFFFFFFFF), Slept(50000),
               Wrote(CMOS_WORK_MODE, 0xFFFFFFFE), Slept(50000), Wrote(CMOS_WORK_MODE, 0xFFFFFFFF),
               Slept(50000)},
     .sensor = kGMAX2509},
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
