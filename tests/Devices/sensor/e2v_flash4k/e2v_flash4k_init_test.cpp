// Bring-up of the e2v Flash 4K on a K4010 board: what is written to the chip and the FPGA, in which
// order, what is printed, and where a failure ends it.
#include <algorithm>
#include <thread>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/e2v_flash4k/E2vLists.h"
#include "Devices/sensor/e2v_flash4k/E2vSensorTest.h"
#include "support/Waiting.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class E2vInit : public E2vSensorTest {
 protected:
  // One write of an operation, and the text printed if it fails.
  struct Step {
    std::string access;
    std::string told;
  };
  using Steps = std::vector<Step>;

  // The steps of a list that has not been supplied yet.
  static Steps PlaceholderSteps(unsigned page) {
    const std::string number = std::to_string(page);
    const std::string read = "E2vFlash4k::BatchReadRegister Wpage ";
    const std::string write = "E2vFlash4k::BatchWriteRegister W";
    return {{"page " + number, read + number + " failed!\n"},
            {"page 0", read + "0 failed!\n"},
            {"page " + number, write + "page " + number + " failed!\n"},
            {"005F = 0000", write + "rite 95 failed!\n"},
            {"page 0", write + "page 0 failed!\n"}};
  }
  static Steps Joined(Steps first, const Steps& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }
  // Loading a table first selects the page once more.
  static Steps LoadSteps(unsigned page) {
    const std::string number = std::to_string(page);
    return Joined(
        {{"page " + number, "E2vFlash4k::RegisterInitialize Wpage " + number + " failed!\n"}},
        PlaceholderSteps(page));
  }

  // Makes every write of an operation fail in turn. The operation must print the step's text
  // between `announcement` and `summary`, return false, and make no other write than the return to
  // page 0.
  template <typename Operation>
  void FailEveryWrite(const Steps& steps, const std::string& summary, Operation operation,
                      const std::string& announcement = "") {
    PowerUp();
    Told([&] { EXPECT_TRUE(operation()); });
    Lines expected;
    for (const Step& step : steps) expected.push_back(step.access);
    Lines writes = Accesses();
    std::erase_if(writes, [](const std::string& access) { return access.ends_with('?'); });
    ASSERT_THAT(writes, ElementsAreArray(expected));

    for (unsigned i = 0; i < steps.size(); ++i) {
      PowerUp();
      FailWrite(i);
      bool done = true;
      const std::string told = Told([&] { done = operation(); });
      EXPECT_FALSE(done) << steps[i].access;
      EXPECT_EQ(told, announcement + steps[i].told + summary) << steps[i].access;
      Lines rest = Accesses();
      std::erase_if(rest, [](const std::string& access) { return access.ends_with('?'); });
      rest.erase(rest.begin(), rest.begin() + i);
      ASSERT_FALSE(rest.empty());
      EXPECT_EQ(rest[0], "failed");
      if (rest.size() > 1) {
        EXPECT_THAT(rest, ElementsAre("failed", "page 0")) << steps[i].access;
      }
    }
  }
};

const Lines kClocksAndSlices{
    "0001 ?",      "0002 ?",      "000F = 0001", "0003 = 131D", "0005 = 000C", "0004 = 0245",
    "000E = 0040", "0010 = 000A", "0008 = 0003", "0000 ?",      "sleep 1000",  "0000 ?",
    "sleep 1000",  "0000 ?",      "sleep 1000",  "0000 ?",      "0009 = 0005", "slices 6 3 2 1",
    "0061 = 1803", "014D = 00FF", "0063 = 0001", "0000 ?",      "sleep 1000",  "0000 ?",
    "sleep 1000",  "0000 ?",      "0065 = 0001", "0011 = 0000", "0012 = 0000", "0013 = 0000",
    "0014 = 0007", "0000 ?"};

const Lines kLvds =
    Lines{"0122 = 3530", "0123 = 0005", "0127 = 4C53", "0128 = 0001"} + kPlaceholderList;

const Lines kBlanking256{"0021 = 017F",           "009F = 0180", "00A0 = 0180",
                         "00A1 = 0180",           "00A2 = 0180", "00A3 = 0180",
                         "00A4 = 0180",           "0074 = 0480", "LASER_OFFSET_TIME = 0x000004b0",
                         "EXP_DELAY = 0x0000688c"};

const Lines kFpgaFollows{"SENSOR_TIMING = 0x0007001c",
                         "ISP_WIDTH = 0x00000000",
                         "ISP_HEIGHT = 0x00000040",
                         "ISP_CTRL = 0x00000001",
                         "STRIP_SELECTOR_IMAGE_WIDTH = 0x00001000",
                         "sleep 1500",
                         "EXP_DELAY = 0x0000688c",
                         "ROI_OFFSET = 0x00000000",
                         "STRIP_IMAGE_WIDTH = 0x00001000",
                         "STRIP_IMAGE_HEIGHT = 0x00000438",
                         "sleep 1500",
                         "CMOS_TIMING_CTRL = 0x00000000",
                         "sleep 100",
                         "CMOS_TIMING_CTRL = 0x00000004",
                         "sleep 2000",
                         "CMOS_TIMING_CTRL = 0x00000005",
                         "0000 ?"};

TEST_F(E2vInit, ProgramsChipAndFpgaInThisOrder) {
  const Lines final_configuration = FinalConfiguration(Chip, kFpgaTimed);
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00)); });
  EXPECT_THAT(Programming(),
              ElementsAreArray(Lines{"SENSOR_TIMING = 0x0000001c", "POLARITY = 0x00000004",
                                     "POLARITY = 0x00000005"} +
                               kClocksAndSlices + Loaded(kRegisterPages) + Lines{"0070 = 0000"} +
                               Loaded({kControlMemoryPage}) + final_configuration + kUpdates +
                               Lines{"012F = 0001"} + kLvds + kBlanking256 + kFpgaFollows));
}

TEST_F(E2vInit, TellsEveryPollAndTheStatus) {
  const std::string pll = "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 value ";
  const std::string slices =
      "E2vFlash4k::RegisterInitialize PllSlcConfiguration Read 0x0000 value ";
  const std::string pll_miss = "- warnning: " + pll + "not equal to 0x60! current value: 0 \n";
  const std::string slices_miss =
      "- warnning: " + slices + "not equal to 0x80! current value: 0 \n";
  const std::string registers = "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = ";
  const std::string roi = "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = ";
  EXPECT_EQ(Printed([&] { sensor().RegisterInitialize(kDriveMode00); }),
            pll_miss + pll_miss + pll_miss + pll + "pass!! \n" + slices_miss + slices_miss +
                slices + "pass!! \n" +
                "E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 value pass!! \n" +
                registers + "240!! busy!\n" + registers + "240!! busy!\n" + registers +
                "224!! pass!\n" + roi + "225!! busy!\n" + roi + "225!! busy!\n" + roi +
                "224!! pass!\n" + "-- E2vFlash4k e2v_spi_.Read(0x0000)  =  224!! \n");
}

TEST_F(E2vInit, AnyOtherModeIsRefusedOnceTheChipIsSetUp) {
  for (const unsigned mode : {0x11u, 0x22u, 0x01u}) {
    PowerUp();
    Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(ReadoutDriveMode{mode})); });
    EXPECT_EQ(Programming().back(), kBlanking256.back());
  }
}

TEST_F(E2vInit, AFailedStepEndsIt) {
  FailWrite(0);
  Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00)); });
  EXPECT_EQ(Programming().back(), "failed");
  // The last read is of the status. It follows those of clocks, loads, final configuration, updates
  // and training.
  PowerUp();
  FailRead((2 + 4 + 3 + 1) + (5 + 1) + 24 + 6 + 1);
  EXPECT_TRUE(Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00)); })
                  .ends_with("\nSpiDev::DoMsg error\n"
                             "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 failed!\n"));
}

TEST_F(E2vInit, ASilentChipIsToldAndDoesNotHang) {
  ASSERT_EQ(tessaline_board_chip_present("sensor", 0), 0);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00)); }),
            "E2vFlash4k::RegisterInitialize Read 0x0001 failed!\n"
            "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n");
  EXPECT_THAT(Accesses(), ElementsAre("0001 ?"));
}

TEST_F(E2vInit, WithoutAnFpgaNothingIsDone) {
  const auto kept = devices().cmos_sensor_;
  devices().fpga_logic_.reset();
  EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00));
  EXPECT_FALSE(sensor().ModifyHorizontalBlanking(1));
  EXPECT_FALSE(sensor().ResetTgesAndVtr());
  EXPECT_THAT(Accesses(), IsEmpty());
}

// --- Clocks and slices ---------------------------------------------------------------------

constexpr char kClocksFailed[] = "E2vFlash4k::InitClocksAndSlicesConfig() failed! \n";

TEST_F(E2vInit, ClocksAndSlicesTellTheWriteThatFailed) {
  FailEveryWrite({{"000F = 0001", "E2vFlash4k::RegisterInitialize Write 0x000f failed!\n"},
                  {"0003 = 131D", "E2vFlash4k::RegisterInitialize Write 0x0003 failed!\n"},
                  {"0005 = 000C", "E2vFlash4k::RegisterInitialize Write 0x0005 failed!\n"},
                  {"0004 = 0245", "E2vFlash4k::RegisterInitialize Write 0x0004 failed!\n"},
                  {"000E = 0040", "E2vFlash4k::RegisterInitialize Write 0x000e failed!\n"},
                  {"0010 = 000A", "E2vFlash4k::RegisterInitialize Write 0x0010 failed!\n"},
                  {"0008 = 0003", "E2vFlash4k::RegisterInitialize Write 0x0008 failed!\n"},
                  {"0009 = 0005", "E2vFlash4k::RegisterInitialize Write 0x0009 failed!\n"},
                  {"slices 6 3 2 1", "E2vFlash4k::RegisterInitialize ConfigSlice failed!\n"},
                  {"0061 = 1803", "E2vFlash4k::RegisterInitialize Write 0x0061 failed!\n"},
                  {"014D = 00FF", "E2vFlash4k::RegisterInitialize Write 0x014d failed!\n"},
                  {"0063 = 0001", "E2vFlash4k::RegisterInitialize Write 0x0063 failed!\n"},
                  {"0065 = 0001", "E2vFlash4k::RegisterInitialize Write 0x0065 failed!\n"},
                  {"0011 = 0000", "E2vFlash4k::RegisterInitialize Write 0x0011 failed!\n"},
                  {"0012 = 0000", "E2vFlash4k::RegisterInitialize Write 0x0012 failed!\n"},
                  {"0013 = 0000", "E2vFlash4k::RegisterInitialize Write 0x0013 failed!\n"},
                  {"0014 = 0007", "E2vFlash4k::RegisterInitialize Write 0x0014 failed!\n"}},
                 kClocksFailed, [&] { return sensor().InitClocksAndSlicesConfig(); });
}

TEST_F(E2vInit, AnotherChipIsToldByTheRegisterThatDiffers) {
  SetChip(0x0002, 0x25F8);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().InitClocksAndSlicesConfig()); }),
            std::string("E2vFlash4k::RegisterInitialize Read 0x0002 failed!\n") + kClocksFailed);
  SetChip(0x0001, 0x2031);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().InitClocksAndSlicesConfig()); }),
            std::string("E2vFlash4k::RegisterInitialize Read 0x0001 failed!\n") + kClocksFailed);
}

// Reads of the clock set-up, and the text printed if one fails.
struct FailedRead {
  unsigned read;
  const char* told;
};
constexpr FailedRead kFailedReads[]{
    {0, "E2vFlash4k::RegisterInitialize Read 0x0001 failed!\n"},
    {1, "E2vFlash4k::RegisterInitialize Read 0x0002 failed!\n"},
    {2, "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 failed!\n"},
    {6, "E2vFlash4k::RegisterInitialize PllSlcConfiguration Read 0x0000 failed!\n"},
    {9, "E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 failed!\n"},
};

TEST_F(E2vInit, AFailedReadEndsThePolls) {
  for (const auto& [read, told] : kFailedReads) {
    PowerUp();
    FailRead(read);
    EXPECT_TRUE(Printed([&] {
                  EXPECT_FALSE(sensor().InitClocksAndSlicesConfig());
                }).ends_with(std::string("SpiDev::DoMsg error\n") + told + kClocksFailed))
        << told;
  }
}

TEST_F(E2vInit, ThePollsShowTheBitsTheyWaitFor) {
  // The status never becomes true. A failed read ends the wait.
  SetChip(0x0000, 0x00BF);
  FailRead(3);
  EXPECT_THAT(Printed([&] { sensor().InitClocksAndSlicesConfig(); }),
              ::testing::StartsWith("- warnning: E2vFlash4k::RegisterInitialize PllEnable Read "
                                    "0x0000 value not equal to 0x60! current value: 20 \n"));
  SetChip(0x0000, 0x007F);
  FailRead(4);
  EXPECT_THAT(Printed([&] { sensor().InitClocksAndSlicesConfig(); }),
              ::testing::HasSubstr("PllSlcConfiguration Read 0x0000 value not equal to 0x80! "
                                   "current value: 0 \n"));
}

// The test holds the status back and sets its bits one by one.
TEST_F(E2vInit, TheLastPollAsksForAllBitsAgain) {
  const auto asked_after = [](const std::string& write) {
    return tessaline_test::Eventually([&] {
      const Lines accesses = Accesses();
      const auto found = std::find(accesses.begin(), accesses.end(), write);
      return std::find(found, accesses.end(), "0000 ?") != accesses.end();
    });
  };
  SetChip(0x0000, 0x0060);
  bool done = false;
  const std::string printed = Printed([&] {
    std::thread programming([&] { done = sensor().InitClocksAndSlicesConfig(); });
    EXPECT_TRUE(asked_after("0063 = 0001"));
    SetChip(0x0000, 0x00A0);
    EXPECT_TRUE(asked_after("0014 = 0007"));
    SetChip(0x0000, 0x00E0);
    programming.join();
  });
  EXPECT_TRUE(done);
  EXPECT_THAT(printed, ::testing::HasSubstr(
                           "- warnning: E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 "
                           "value not equal to 0xe0! current value: a0 \n"));
}

// --- Tables --------------------------------------------------------------------------------

TEST_F(E2vInit, LoadingRegistersTellsWhatFailed) {
  Steps steps;
  for (const unsigned page : kRegisterPages) steps = Joined(steps, LoadSteps(page));
  FailEveryWrite(steps, "", [&] { return sensor().LoadRegisters(); });
}

TEST_F(E2vInit, LoadingControlMemoriesTellsWhatFailed) {
  FailEveryWrite(Joined({{"0070 = 0000", "E2vFlash4k::RegisterInitialize Write 0x0070 failed!\n"}},
                        LoadSteps(kControlMemoryPage)),
                 "", [&] { return sensor().LoadControlMemories(); });
}

TEST_F(E2vInit, LvdsTrainingTellsWhatFailed) {
  FailEveryWrite(Joined({{"0122 = 3530", "E2vFlash4k::RegisterInitialize Write 0x0122 failed!\n"},
                         {"0123 = 0005", "E2vFlash4k::RegisterInitialize Write 0x0123 failed!\n"},
                         {"0127 = 4C53", "E2vFlash4k::RegisterInitialize Write 0x0127 failed!\n"},
                         {"0128 = 0001", "E2vFlash4k::RegisterInitialize Write 0x0128 failed!\n"}},
                        PlaceholderSteps(0)),
                 "E2vFlash4k::LvdsTraining() failed! \n", [&] { return sensor().LvdsTraining(); });
}

TEST_F(E2vInit, BlankingTellsWhatFailed) {
  FailEveryWrite({{"0021 = 017F", "E2vFlash4k::RegisterInitialize Write 0x0021 failed!\n"},
                  {"009F = 0180", "E2vFlash4k::RegisterInitialize Write 0x009f failed!\n"},
                  {"00A0 = 0180", "E2vFlash4k::RegisterInitialize Write 0x00a0 failed!\n"},
                  {"00A1 = 0180", "E2vFlash4k::RegisterInitialize Write 0x00a1 failed!\n"},
                  {"00A2 = 0180", "E2vFlash4k::RegisterInitialize Write 0x00a2 failed!\n"},
                  {"00A3 = 0180", "E2vFlash4k::RegisterInitialize Write 0x00a3 failed!\n"},
                  {"00A4 = 0180", "E2vFlash4k::RegisterInitialize Write 0x00a4 failed!\n"},
                  {"0074 = 0480", "E2vFlash4k::RegisterInitialize Write 0x0074 failed!\n"}},
                 "", [&] { return sensor().ModifyHorizontalBlanking(256); });
}

// --- Test image ----------------------------------------------------------------------------

TEST_F(E2vInit, TheTestImageEndsWithThePatternOff) {
  EXPECT_EQ(Told([&] { EXPECT_TRUE(sensor().TestImage()); }), "E2vFlash4k::TestImage() \n");
  EXPECT_THAT(Programming(),
              ElementsAreArray(Lines{"005F = 0001", "page 0", "005F ?", "page 0", "page 0",
                                     "005F = 0001", "page 0"} +
                               kUpdates + Lines{"0071 = 000F", "005F = 0000", "0041 = 0001"}));
}

TEST_F(E2vInit, TheTestImageTellsWhatFailed) {
  FailEveryWrite(
      {{"005F = 0001", "E2vFlash4k::TestImage Write 0x005f failed!\n"},
       {"page 0", "E2vFlash4k::BatchReadRegister Wpage 0 failed!\n"},
       {"page 0", "E2vFlash4k::BatchReadRegister Wpage 0 failed!\n"},
       {"page 0", "E2vFlash4k::BatchWriteRegister Wpage 0 failed!\n"},
       {"005F = 0001", "E2vFlash4k::BatchWriteRegister Write 95 failed!\n"},
       {"page 0", "E2vFlash4k::BatchWriteRegister Wpage 0 failed!\n"},
       {"update registers",
        "E2vSpiInterface::UpdateRegisters() error!\n"
        "E2vFlash4k::TestImage UpdateRegisters failed!\n"},
       {"update ROI",
        "E2vSpiInterface::UpdateROI() error!\n"
        "E2vFlash4k::TestImage UpdateROI failed!\n"},
       {"0071 = 000F", "E2vFlash4k::TestImage Write 0x0071 failed!\n"},
       {"005F = 0000", "E2vFlash4k::TestImage Write 0x005f failed!\n"},
       {"0041 = 0001", "E2vFlash4k::TestImage Write 0x0048 failed!\n"}},
      "E2vFlash4k::TestImage() failed! \n", [&] { return sensor().TestImage(); },
      "E2vFlash4k::TestImage() \n");
}

TEST_F(E2vInit, TheStatusCanBePrinted) {
  SetChip(0x0000, 0x01E0);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().PrintStatusReg()); }),
            "-- E2vFlash4k e2v_spi_.Read(0x0000)  =  480!! \n");
  FailRead(0);
  EXPECT_EQ(Told([&] { EXPECT_FALSE(sensor().PrintStatusReg()); }),
            "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 failed!\n");
}

}  // namespace
}  // namespace VeltranoSDK
