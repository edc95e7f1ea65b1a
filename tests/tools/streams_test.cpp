// Standard output, standard error and pipes: what goes where, and what if nobody takes it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// --- Data on standard output ---------------------------------------------------------------

struct Stream {
  const char* name;
  const char* arguments;
  const char* begins;
};

std::ostream& operator<<(std::ostream& out, const Stream& stream) { return out << stream.name; }

class Data : public ::testing::TestWithParam<Stream> {};

// As much as in a file: nothing in front, between or behind.
TEST_P(Data, IsAllThatIsOnStandardOutput) {
  const Directory directory;
  const std::string arguments = std::string(GetParam().arguments) + " --virtual K3610 ";
  const ToolResult file = RunTool(arguments + "-o " + (directory / "data"));
  ASSERT_EQ(file.status, 0) << file.err;
  const std::string bytes = FileText(directory / "data");
  for (const char* output : {"-", "/dev/stdout"}) {
    const ToolResult stream = RunTool(arguments + "--json -v -o " + output);
    EXPECT_EQ(stream.status, 0) << stream.err;
    EXPECT_THAT(stream.out, StartsWith(GetParam().begins));
    // Stamps differ, and with them digits and pictures.
    const auto size = static_cast<double>(bytes.size());
    EXPECT_NEAR(static_cast<double>(stream.out.size()), size, size / 20);
    EXPECT_EQ(stream.out.back(), bytes.back());
    EXPECT_THAT(stream.err, HasSubstr("\"board\": \"virtual\""));
  }
}

constexpr Stream kStreams[]{
    {"Csv", "capture strips -n 5 --format csv", "frame_id,time_stamp"},
    {"Npy", "capture strips -n 5 --format npy", "\x93NUMPY"},
    {"Raw", "capture strips -n 5 --format raw", ""},
    {"Image", "capture images -n 1 --format png", "\x89PNG"},
    {"Pgm", "capture images -n 1 --format pgm", "P5\n"},
    {"Eeprom", "eeprom dump", ""},
};

INSTANTIATE_TEST_SUITE_P(Streams, Data, ::testing::ValuesIn(kStreams),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RegisterDump, IsAllThatIsOnStandardOutput) {
  const ToolResult dump = RunTool("reg dump --start -v -o - --virtual K3610");
  EXPECT_EQ(dump.status, 0) << dump.err;
  EXPECT_THAT(dump.out, StartsWith("# virtual board of a K3610\n"));
  EXPECT_THAT(dump.out, Not(HasSubstr("wrote")));
  EXPECT_THAT(dump.err, HasSubstr("registers to -"));
}

TEST(Picture, GoesToStandardOutputAsAWhole) {
  const ToolResult map = RunTool("capture strips -n 50 --format png -o - --virtual K3610");
  EXPECT_EQ(map.status, 0) << map.err;
  EXPECT_THAT(map.out, StartsWith("\x89PNG"));
  EXPECT_THAT(map.err, HasSubstr("50 profiles"));
}

// As many as come, one behind the other.
TEST(Pictures, GoToStandardOutputAsPgm) {
  const ToolResult two = RunTool("capture images -n 2 --format pgm -o - --virtual K3610");
  EXPECT_EQ(two.status, 0) << two.err;
  constexpr std::size_t kPixels = 1456 * 1088;
  EXPECT_GT(two.out.size(), 2 * kPixels);
  EXPECT_EQ(two.out.substr(two.out.size() / 2, 3), "P5\n");
}

// --- Standard streams that are not there ---------------------------------------------------

class Closed : public ::testing::TestWithParam<const char*> {};

TEST_P(Closed, OutputIsTold) {
  const ToolResult result =
      ToolRun(std::string(GetParam()) + " --virtual K3610").WithoutStandardOutput().Run();
  EXPECT_EQ(result.status, kFile);
  EXPECT_THAT(result.err, HasSubstr("standard output"));
  EXPECT_EQ(CountLines(result.err), 1) << result.err;
}

INSTANTIATE_TEST_SUITE_P(Commands, Closed,
                         ::testing::Values("models", "reg list", "sensor tables", "info", "--help",
                                           "models --json", "led red", "--version",
                                           "eeprom dump -o -"));

TEST(Closed, OutputDoesNotTouchTheFileOfACapture) {
  const Directory directory;
  ToolRun("capture strips -n 5 --virtual K3610 -o " + (directory / "a.csv"))
      .WithoutStandardOutput()
      .Run();
  EXPECT_THAT(FileText(directory / "a.csv"), StartsWith("frame_id,"));
  EXPECT_THAT(FileText(directory / "a.csv"), Not(HasSubstr("profiles")));
}

// The library tells every byte it writes on standard error, which is captured meanwhile.
TEST(Verbose, DoesNotReadItsOwnLines) {
  const Directory directory;
  WriteFile(directory / "content.bin", std::string(512, 'x'));
  const ToolResult result =
      RunTool("eeprom load " + (directory / "content.bin") + " -v --virtual K3610");
  EXPECT_EQ(result.status, kOk);
  EXPECT_THAT(result.out, HasSubstr("512 bytes written"));
  EXPECT_THAT(result.err, HasSubstr("library: ConfigSave successful!"));
  EXPECT_THAT(result.err, Not(HasSubstr("library: library:")));
}

// --- Errors for programs -------------------------------------------------------------------

TEST(Json, AnswersErrorsToo) {
  for (const char* arguments :
       {"power 101 --virtual K3610", "info --frob", "info", "reg read NONSENSE --virtual K3610",
        "capture strips -n 1 -o /nonexistent/x.csv --virtual K3610",
        "trace --virtual K3610 frobnicate"}) {
    const ToolResult result = RunTool("--json " + std::string(arguments));
    const auto json = result.Json();
    ASSERT_TRUE(json.is_object()) << arguments << '\n' << result.out;
    EXPECT_FALSE(json["error"].get<std::string>().empty()) << arguments;
    EXPECT_EQ(json["status"], result.status) << arguments;
    EXPECT_EQ(CountLines(result.err), 1) << result.err;
  }
}

// --- What a device or a file says, on a terminal -------------------------------------------

TEST(ControlCharacters, AreShownAndNotSent) {
  const ToolResult result = RunTool("models K36\x1b[2J\x07");
  EXPECT_EQ(result.status, kUsage);
  EXPECT_THAT(result.err, HasSubstr("K36\\x1b[2J\\x07"));
}

}  // namespace
}  // namespace tessaline_test
