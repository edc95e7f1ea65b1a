// Registers by name, dumps and how they differ, the EEPROM, and the trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr const char* kOnBoard = " --virtual K3610";

TEST(Reg, FindsARegisterByNameAndAddress) {
  for (const char* name : {"TRI_SPACING", "tri_spacing", "IMAGE_BLOCK_1.TRI_SPACING",
                           "IMAGE_BLOCK_1+0x08", "0x43C10008", "0x43c10008"}) {
    const auto read = RunTool(std::string("reg read --start --json ") + name + kOnBoard).Json();
    ASSERT_EQ(read.size(), 1u) << name;
    EXPECT_EQ(read[0]["name"], "TRI_SPACING");
    EXPECT_EQ(read[0]["value"], 4000 * 50);
  }
}

TEST(Reg, DecodesFields) {
  const ToolResult result = RunTool(std::string("reg read TRIGGER_CTRL --start") + kOnBoard);
  EXPECT_THAT(result.out, HasSubstr("mode 3, door_control 0"));
  const auto one = RunTool(std::string("reg read TRIGGER_CTRL.mode --json --start") + kOnBoard);
  EXPECT_EQ(one.Json()[0]["field_value"], 3);
}

// SENSOR_TIMING after a start, and where the upper of its two fields begins.
struct Timing {
  const char* model;
  unsigned t_ges, t_row, row_shift;
};

void PrintTo(const Timing& timing, std::ostream* out) { *out << timing.model; }

class SensorTiming : public ::testing::TestWithParam<Timing> {};

TEST_P(SensorTiming, IsSplitAsTheFamilysFpgaDoes) {
  const auto [model, t_ges, t_row, row_shift] = GetParam();
  const std::string board = std::string(" --start --json --virtual ") + model;
  const auto timing = RunTool("reg read SENSOR_TIMING" + board).Json();
  EXPECT_EQ(timing[0]["fields"], (nlohmann::json{{"t_ges", t_ges}, {"t_row", t_row}}));
  const auto write = RunTool("reg write SENSOR_TIMING.t_row 9" + board).Json();
  EXPECT_EQ(write["after"], 9u << row_shift | t_ges);
}

INSTANTIATE_TEST_SUITE_P(Families, SensorTiming,
                         ::testing::Values(Timing{"K3610", 20, 237, 5}, Timing{"K3710", 16, 309, 5},
                                           Timing{"K3810", 80, 151, 16}, Timing{"K3910", 20, 0, 16},
                                           Timing{"K4010", 28, 7, 16}));

TEST(Reg, HasTheAddressesOfTheFamily) {
  const auto timing = RunTool("reg read SENSOR_TIMING --json --virtual K4010").Json();
  EXPECT_EQ(timing[0]["address"], 0xA000002Cu);
}

TEST(Reg, WritesAFieldAndLeavesTheOthers) {
  const auto write =
      RunTool(std::string("reg write TRIGGER_CTRL.delay_standard 1 --start --json") + kOnBoard);
  EXPECT_EQ(write.Json()["before"], 3);
  EXPECT_EQ(write.Json()["after"], 3 | 1 << 5);
}

TEST(Reg, ListsAllRegistersOfTheMap) {
  const auto list = RunTool(std::string("reg list --json") + kOnBoard).Json();
  EXPECT_GT(list.size(), 130u);
  const ToolResult some = RunTool(std::string("reg list exp_time") + kOnBoard);
  EXPECT_EQ(CountLines(some.out), 5);
}

class Dumps : public ::testing::TestWithParam<const char*> {};

TEST_P(Dumps, AreComparedByName) {
  const Directory directory;
  const std::string before = directory / "before";
  const std::string after = directory / "after";
  const std::string form = GetParam();
  ASSERT_EQ(RunTool("reg dump -o " + before + form + kOnBoard).status, 0);
  ASSERT_EQ(ToolRun("reg dump -o " + after + form + kOnBoard)
                .With("TESSALINE_BOARD_FAULTS", "register TRI_DELAY 17; register POLARITY 4")
                .Run()
                .status,
            0);
  EXPECT_EQ(RunTool("reg dump --model K3610 --diff " + before + " " + before).status, 0);

  const ToolResult differ = RunTool("reg dump --model K3610 --diff " + before + " " + after);
  EXPECT_EQ(differ.status, 1);
  EXPECT_THAT(differ.out, AllOf(HasSubstr("IMAGE_BLOCK_3 TRI_DELAY\n  - 0x00000000  0\n"
                                          "  + 0x00000011  17\n"),
                                HasSubstr("laser_trigger 1")));
}

INSTANTIATE_TEST_SUITE_P(Forms, Dumps, ::testing::Values("", " --json"));

TEST(Reg, RefusesAFileThatIsNoDump) {
  const Directory directory;
  const std::string file = directory / "file";
  for (const char* text :
       {"Roses are red\n", "", R"({"registers": []})", R"({"registers": [7]})",
        R"({"registers": [{"block": 1, "name": 2, "value": 3}]})",
        R"({"registers": [{"block": "BLOCK", "name": "NAME", "value": 4294967296}]})"}) {
    WriteFile(file, text);
    const ToolResult result = RunTool("reg dump --model K3610 --diff " + file + " " + file);
    EXPECT_EQ(result.status, 2) << text;
    EXPECT_THAT(result.err, HasSubstr("is not a register dump")) << text;
  }
}

// Nobody wants his devices taken away because they took no data.
TEST(Reg, LeavesADeviceItCannotWriteTo) {
  const Directory directory;
  const std::string full = directory / "full";
  ASSERT_EQ(symlink("/dev/full", full.c_str()), 0);
  const ToolResult result = RunTool("reg dump --force -o " + full + kOnBoard);
  EXPECT_EQ(result.status, 6);
  EXPECT_EQ(CountLines(result.err), 1) << result.err;
  EXPECT_THAT(result.err, HasSubstr("No space left on device"));
  EXPECT_TRUE(std::filesystem::is_symlink(full));
}

TEST(Reg, OverwritesNothing) {
  const Directory directory;
  WriteFile(directory / "dump", "mine");
  const std::string arguments = "reg dump -o " + (directory / "dump") + kOnBoard;
  const ToolResult refused = RunTool(arguments);
  EXPECT_EQ(refused.status, 5);
  EXPECT_THAT(refused.err, HasSubstr("--force"));
  EXPECT_EQ(FileText(directory / "dump"), "mine");
  EXPECT_EQ(RunTool(arguments + " --force").status, 0);
  EXPECT_THAT(FileText(directory / "dump"), HasSubstr("TRI_SPACING"));
}

TEST(Eeprom, LoadsWhatWasDumpedAndVerifies) {
  const Directory directory;
  std::string content(512, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7);
  WriteFile(directory / "content.bin", content);
  const std::string file = directory / "content.bin";
  // The board of the command ends with it: what was loaded is compared at once.
  EXPECT_EQ(RunTool("eeprom load " + file + kOnBoard).status, 0);
  const auto verify = RunTool("eeprom verify --json " + file + kOnBoard);
  EXPECT_EQ(verify.status, 1);
  EXPECT_EQ(verify.Json()["differences"].size(), 510u);  // an erased one holds 0xFF
  ASSERT_EQ(RunTool("eeprom dump -o " + (directory / "erased.bin") + kOnBoard).status, 0);
  EXPECT_EQ(FileText(directory / "erased.bin"), std::string(512, '\xFF'));
  EXPECT_EQ(RunTool("eeprom verify " + (directory / "erased.bin") + kOnBoard).status, 0);
}

TEST(Eeprom, ThatDoesNotAnswerIsTold) {
  const ToolResult result = ToolRun(std::string("eeprom dump") + kOnBoard)
                                .With("TESSALINE_BOARD_FAULTS", "absent eeprom")
                                .Run();
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(CountLines(result.err), 1) << result.err;
  EXPECT_THAT(result.err, HasSubstr("i2cdetect"));
}

TEST(Trace, ShowsTheTrafficByName) {
  const ToolResult result = RunTool("trace --virtual K3610 trigger --mode encoder --spacing 10");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("SetTriMode"));
  EXPECT_THAT(result.out, HasSubstr("  write  0x43c10008  IMAGE_BLOCK_1 TRI_SPACING\n"));
}

TEST(Trace, HasOneObjectAsJson) {
  const ToolResult result = RunTool("trace --summary --json --virtual K3610 info");
  ASSERT_FALSE(result.Json().is_discarded()) << result.out;
  EXPECT_GE(result.Json()["reads"], 10);
  EXPECT_EQ(result.Json()["writes"], 0);
}

TEST(Trace, HasTheExitStatusOfWhatItTraces) {
  const ToolResult result = RunTool("trace --virtual K3610 reg read NONSENSE");
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("tessaline reg read: \"NONSENSE\""));
}

}  // namespace
}  // namespace tessaline_test
