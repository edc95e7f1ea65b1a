// The data path: stream switches, collect and strip data modes, frame counters.
#include "Devices/fpga/FpgaLogicFixture.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

using Steps = std::vector<std::string>;

constexpr Block kSensorSwitch = Block::kImage2;
constexpr Block kMemorySwitch = Block::kImage4;
constexpr std::uint32_t kOffPort = kStreamSwitchPortOff;

std::string Port(Block block, std::size_t port, std::uint32_t value) {
  return Wrote(StreamSwitchPort(block, port), value);
}

std::string Commit(Block block) { return Wrote(StreamSwitchControl(block), 2); }

// What EnableCollectModeSignal writes, up to the n-th.
Steps Enabling(std::size_t length) {
  Steps steps{Port(kSensorSwitch, 0, kOffPort), Port(kSensorSwitch, 1, 0)};
  for (std::size_t i = 2; i < 16; ++i) steps.push_back(Port(kSensorSwitch, i, kOffPort));
  steps.push_back(Wrote(COLLECT_MODE, 1));
  steps.push_back(Commit(kSensorSwitch));
  steps.push_back(Port(kMemorySwitch, 0, 1));
  for (std::size_t i = 1; i < 16; ++i) steps.push_back(Port(kMemorySwitch, i, kOffPort));
  steps.push_back(Commit(kMemorySwitch));
  steps.resize(length);
  return steps;
}
constexpr std::size_t kWholeEnabling = 35;

// The steps of SetCollectMode; of the accesses only the first n.
Steps ImageSteps(std::size_t length) {
  Steps steps{Port(kSensorSwitch, 0, kOffPort),
              Port(kSensorSwitch, 1, 0),
              Wrote(COLLECT_MODE, 1),
              Port(kMemorySwitch, 0, 1),
              Read(EXPOSURE_NUM, 0xB),
              Wrote(EXPOSURE_NUM, 0xBB83),
              Commit(kSensorSwitch),
              Commit(kMemorySwitch),
              Slept(1000)};
  steps.resize(length);
  return steps;
}
constexpr std::size_t kWholeSetting = 9;

auto SetImages() {
  return [](FpgaLogic& f) { return f.SetCollectMode(kCollectImage); };
}

const std::vector<Rule> kEnableRules{
    {.name = "RoutesImages",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .steps = Enabling(kWholeEnabling)},
    {.name = "StopsAtTheFirstPort",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .printed = "SetEnableSignal error\n",
     .failing_access = 0},
    {.name = "StopsAtTheSecondPort",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .steps = Enabling(1),
     .printed = "SetEnableSignal error\n",
     .failing_access = 1},
    {.name = "StopsAtAPortOfTheFirstSwitch",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .steps = Enabling(3),
     .printed = "SetEnableSignal error\n",
     .failing_access = 3},
    {.name = "StopsAtTheMode",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .steps = Enabling(16),
     .printed = "SetCollectMode error\n",
     .failing_access = 16},
    {.name = "StopsAtTheFirstCommit",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .steps = Enabling(17),
     .printed = "SetEnableSignal error\n",
     .failing_access = 17},
    {.name = "StopsAtTheFirstPortOfTheSecondSwitch",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .steps = Enabling(18),
     .printed = "SetCollectMode error\n",
     .failing_access = 18},
    {.name = "StopsAtAnotherPortOfTheSecondSwitch",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .steps = Enabling(19),
     .printed = "SetEnableSignal error\n",
     .failing_access = 19},
    {.name = "StopsAtTheSecondCommit",
     .call = [](auto& f) { return f.EnableCollectModeSignal(); },
     .result = 0,
     .steps = Enabling(34),
     .printed = "SetEnableSignal error\n",
     .failing_access = 34},
};

const std::vector<Rule> kCollectRules{
    {.name = "Images",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .steps = ImageSteps(kWholeSetting)},
    {.name = "LaserLines",
     .given = {{EXPOSURE_NUM, 0xBB83}},
     .call = [](auto& f) { return f.SetCollectMode(kCollectLaserLine); },
     .steps = {Port(kSensorSwitch, 0, 0), Port(kSensorSwitch, 1, kOffPort), Wrote(COLLECT_MODE, 0),
               Port(kMemorySwitch, 0, 0), Read(EXPOSURE_NUM, 0xBB83), Wrote(EXPOSURE_NUM, 0xB),
               Commit(kSensorSwitch), Commit(kMemorySwitch), Slept(1000)}},
    {.name = "KeepsTheThreeBitsOfTheExposureCount",
     .given = {{EXPOSURE_NUM, 0xFFFFFFF7}},
     .call = [](auto& f) { return f.SetCollectMode(kCollectLaserLine); },
     .steps = {Port(kSensorSwitch, 0, 0), Port(kSensorSwitch, 1, kOffPort), Wrote(COLLECT_MODE, 0),
               Port(kMemorySwitch, 0, 0), Read(EXPOSURE_NUM, 0xFFFFFFF7), Wrote(EXPOSURE_NUM, 0xF),
               Commit(kSensorSwitch), Commit(kMemorySwitch), Slept(1000)}},
    {.name = "AnotherModeIsRefused",
     .call = [](auto& f) { return f.SetCollectMode(CollectMode{2}); },
     .result = 0,
     .printed = "SetCollectMode error mode error\n"},
    {.name = "StopsAtTheFirstPort",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .printed = "SetCollectMode error\n",
     .failing_access = 0},
    {.name = "StopsAtTheMode",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .steps = ImageSteps(2),
     .printed = "SetCollectMode error\n",
     .failing_access = 2},
    {.name = "StopsAtThePortOfTheSecondSwitch",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .steps = ImageSteps(3),
     .printed = "SetCollectMode error\n",
     .failing_access = 3},
    {.name = "StopsAtThePorts",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .steps = ImageSteps(1),
     .printed = "SetCollectMode error\n",
     .failing_access = 1},
    {.name = "StopsAtTheReadOfTheExposures",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .steps = ImageSteps(4),
     .printed = "SetCollectMode error\n",
     .failing_access = 4},
    {.name = "StopsAtTheWriteOfTheExposures",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .steps = ImageSteps(5),
     .printed = "SetCollectMode error\n",
     .failing_access = 5},
    {.name = "StopsAtTheFirstCommit",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .steps = ImageSteps(6),
     .printed = "SetEnableSignal error\n",
     .failing_access = 6},
    {.name = "StopsAtTheSecondCommit",
     .given = {{EXPOSURE_NUM, 0xB}},
     .call = SetImages(),
     .result = 0,
     .steps = ImageSteps(7),
     .printed = "SetEnableSignal error\n",
     .failing_access = 7},
    {.name = "ExposuresOfAllOnesCountAsAFailedRead",
     .given = {{EXPOSURE_NUM, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetCollectMode(kCollectLaserLine); },
     .result = 0,
     .steps = {Port(kSensorSwitch, 0, 0), Port(kSensorSwitch, 1, kOffPort), Wrote(COLLECT_MODE, 0),
               Port(kMemorySwitch, 0, 0), Read(EXPOSURE_NUM, 0xFFFFFFFF)},
     .printed = "SetCollectMode error\n"},
};

const std::vector<Rule> kOtherRules{
    {.name = "SetCollectMode2WritesAnyValue",
     .call = [](auto& f) { return f.SetCollectMode2(CollectMode{77}); },
     .steps = {Wrote(COLLECT_MODE, 77)}},
    {.name = "SetStripDataMode",
     .call = [](auto& f) { return f.SetStripDataMode(StripSelectMode{0x102}); },
     .steps = {Wrote(STRIP_DATA_MODE, 0x102)}},
    {.name = "SetStripDataModeTellsAFailedWrite",
     .call = [](auto& f) { return f.SetStripDataMode(StripSelectMode{1}); },
     .result = 0,
     .failing_access = 0},
    {.name = "GetStripDataMode",
     .given = {{STRIP_DATA_MODE, 2}},
     .call = [](auto& f) { return f.GetStripDataMode(); },
     .result = 2,
     .steps = {Read(STRIP_DATA_MODE, 2)}},
    {.name = "ResetFrameIDPulses",
     .call = [](auto& f) { return f.ResetFrameID(); },
     .steps = {Wrote(FRAME_ID_RESET, 1), Slept(1), Wrote(FRAME_ID_RESET, 0), Slept(1)}},
    {.name = "GetCallbackLostNum",
     .given = {{CALLBACK_LOST_NUM, 9}},
     .call = [](auto& f) { return f.GetCallbackLostNum(); },
     .result = 9,
     .steps = {Read(CALLBACK_LOST_NUM, 9)}},
    {.name = "ResetCallbackLostNumPulsesAndReturnsFalse",
     .call = [](auto& f) { return f.ResetCallbackLostNum(); },
     .result = 0,
     .steps = {Wrote(CALLBACK_LOST_RESET, 1), Slept(1), Wrote(CALLBACK_LOST_RESET, 0), Slept(1)}},
    {.name = "GetStripDelayIsNeverTrue",
     .given = {{STRIP_DELAY, 40}},
     .call =
         [](auto& f) {
           return f.GetStripDelay() == std::pair<bool, unsigned int>{false, 40};
         },
     .steps = {Read(STRIP_DELAY, 40)}},
    {.name = "GetStripDelayOfAllOnesIsAnError",
     .given = {{STRIP_DELAY, 0xFFFFFFFF}},
     .call =
         [](auto& f) {
           return f.GetStripDelay() == std::pair<bool, unsigned int>{false, 0};
         },
     .steps = {Read(STRIP_DELAY, 0xFFFFFFFF)},
     .printed = "GetStripDelay error\n"},
};

TEST_P(FpgaRule, Holds) { Check(GetParam()); }
INSTANTIATE_TEST_SUITE_P(EnableCollectModeSignal, FpgaRule, ::testing::ValuesIn(kEnableRules),
                         FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(SetCollectMode, FpgaRule, ::testing::ValuesIn(kCollectRules),
                         FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(Counters, FpgaRule, ::testing::ValuesIn(kOtherRules), FpgaRule::Name);

TEST_F(ZynqFpga, TheCollectModeIsImagesUntilItIsSet) {
  EXPECT_EQ(logic().collect_mode(), kCollectImage);
}

TEST_F(ZynqFpga, TheCollectModeFollowsTheRouting) {
  ASSERT_TRUE(logic().SetCollectMode(kCollectLaserLine));
  EXPECT_EQ(logic().collect_mode(), kCollectLaserLine);
  ASSERT_TRUE(logic().EnableCollectModeSignal());
  EXPECT_EQ(logic().collect_mode(), kCollectImage);
}

TEST_F(ZynqFpga, TheCollectModeStaysWhenItIsRefusedOrWrittenAlone) {
  EXPECT_FALSE(logic().SetCollectMode(CollectMode{2}));
  EXPECT_TRUE(logic().SetCollectMode2(kCollectLaserLine));
  EXPECT_EQ(logic().collect_mode(), kCollectImage);
}

// What SetExpNum goes by: it must not run ahead of the routing, nor lag behind.
class FailingRouting : public ZynqFpga {
 protected:
  static void FailAccess(unsigned int number) {
    tessaline_board_clear_faults();
    tessaline_board_fault("fpga", "mmap", number, 1, EIO);
  }
};

TEST_F(FailingRouting, LeavesTheCollectModeWhenEnablingFails) {
  ASSERT_TRUE(logic().SetCollectMode(kCollectLaserLine));
  for (unsigned int access = 0; access < kWholeEnabling; ++access) {
    FailAccess(access);
    EXPECT_FALSE(logic().EnableCollectModeSignal()) << access;
    EXPECT_EQ(logic().collect_mode(), kCollectLaserLine) << access;
  }
}

TEST_F(FailingRouting, ChangesTheCollectModeOnceTheExposuresAreWritten) {
  constexpr unsigned int kExposuresWritten = 6;  // the accesses until then
  constexpr unsigned int kAccesses = 8;
  for (unsigned int access = 0; access < kAccesses; ++access) {
    tessaline_board_clear_faults();
    ASSERT_TRUE(logic().SetCollectMode(kCollectImage));
    FailAccess(access);
    EXPECT_FALSE(logic().SetCollectMode(kCollectLaserLine)) << access;
    EXPECT_EQ(logic().collect_mode(),
              access < kExposuresWritten ? kCollectImage : kCollectLaserLine)
        << access;
  }
}

}  // namespace
}  // namespace tessaline_test
