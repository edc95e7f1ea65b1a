// Manual pages and completion, both made from the program's own help.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <set>
#include <string>

#include "Recording.h"
#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;

// The sub-commands, as the help lists them.
std::set<std::string> Commands() {
  std::istringstream help(RunTool("--help").out);
  std::set<std::string> commands;
  bool listing = false;
  for (std::string line; std::getline(help, line);) {
    if (line == "Subcommands:") {
      listing = true;
    } else if (listing && !line.starts_with("  ")) {
      break;
    } else if (listing && line[2] != ' ') {
      commands.insert(line.substr(2, line.find(' ', 2) - 2));
    }
  }
  return commands;
}

const std::set<std::string> kCommands{
    "bag",       "calibrate", "calibration", "capture", "check",  "eeprom", "exposure",
    "fleet",     "info",      "laser",       "led",     "models", "power",  "publish",
    "recipe",    "record",    "reg",         "replay",  "roi",    "sensor", "serve",
    "subscribe", "time",      "trace",       "trigger", "watch"};

TEST(Help, ListsEverySubCommand) { EXPECT_EQ(Commands(), kCommands); }

TEST(Help, SaysWhatDrivesTheLaserOrWrites) {
  for (const char* command : {"laser", "capture strips", "record", "watch", "check"}) {
    EXPECT_THAT(RunTool(std::string(command) + " --help").out, HasSubstr("DRIVES THE LASER"));
  }
  for (const char* command :
       {"led", "power", "exposure", "roi", "trigger", "recipe apply", "reg write"}) {
    EXPECT_THAT(RunTool(std::string(command) + " --help").out, HasSubstr("WRITES REGISTERS"));
  }
  for (const char* command : {"info", "reg read", "reg dump"}) {
    EXPECT_THAT(RunTool(std::string(command) + " --help").out, HasSubstr("--start WRITES"));
  }
  EXPECT_THAT(RunTool("eeprom load --help").out, HasSubstr("WRITES THE EEPROM"));
}

// Every command of the guide, in its order and in one directory.
TEST(Guide, ShowsCommandsThatWork) {
  const Directory directory;
  WriteRecording(directory / "run.db3");
  std::istringstream guide(FileText(TESSALINE_SOURCE "/docs/tool.md"));
  int commands = 0;
  for (std::string line; std::getline(guide, line);) {
    const std::string begin = "    tessaline ";
    if (!line.starts_with(begin) || line.find(": ") != std::string::npos) continue;
    std::string arguments = line.substr(begin.size());
    // As a reader ends it, by Ctrl-C.
    if (arguments == "watch --virtual K3610") arguments += " --time 0.5";
    const ToolResult result =
        ToolRun(arguments).In(directory.path()).With("TESSALINE_BOARD_PACE", "real").Run();
    const int expected = arguments.find("diff ") == std::string::npos ? 0 : 1;
    EXPECT_EQ(result.status, expected) << line << '\n' << result.err;
    ++commands;
  }
  EXPECT_GT(commands, 35);
}

// What the guide shows with its output ("..." stands for more of it), settings in front included.
TEST(Guide, ShowsWhatIsPrinted) {
  const std::regex shown{"    \\$ (?:(\\w+)='([^']*)' )?tessaline (.*)"};
  std::istringstream guide(FileText(TESSALINE_SOURCE "/docs/tool.md"));
  int commands = 0;
  std::string printed;
  for (std::string line; std::getline(guide, line);) {
    if (std::smatch command; std::regex_match(line, command, shown)) {
      ToolRun run(command[3]);
      if (command[1].matched) run.With(command[1], command[2]);
      const ToolResult result = run.Run();
      EXPECT_THAT(result.status, AnyOf(kNegative, kUsage)) << line;  // both show what goes wrong
      printed = result.out + result.err;
      ++commands;
    } else if (!line.starts_with("    ")) {
      printed.clear();
    } else if (!printed.empty() && line != "    ...") {
      EXPECT_THAT(printed, HasSubstr(line.substr(4)));
    }
    EXPECT_TRUE(!line.starts_with("    $") || !printed.empty()) << "not run: " << line;
  }
  EXPECT_EQ(commands, 2);
}

TEST(ManPages, AreThereForEverySubCommand) {
  const Directory directory;
  ASSERT_EQ(RunTool("--write-man-pages " + directory.path()).status, 0);
  const std::string main = FileText(directory / "tessaline.1");
  EXPECT_THAT(main, HasSubstr(".SH EXIT STATUS"));
  for (const std::string& command : kCommands) {
    EXPECT_THAT(main, HasSubstr("\\fB" + command + "\\fR"));
    EXPECT_THAT(FileText(directory / ("tessaline-" + command + ".1")), HasSubstr(".SH OPTIONS"));
  }
  const std::string write = FileText(directory / "tessaline-reg-write.1");
  EXPECT_THAT(write, HasSubstr("WRITES REGISTERS"));
  EXPECT_THAT(write, HasSubstr("\\-\\-dry\\-run"));
}

TEST(ManPages, AreWhatTroffUnderstands) {
  if (std::system("command -v groff >/dev/null") != 0)
    GTEST_SKIP() << "groff is not installed; scripts/setup installs it";
  const Directory directory;
  ASSERT_EQ(RunTool("--write-man-pages " + directory.path()).status, 0);
  const std::string format = "for page in " + directory.path() +
                             "/*.1; do groff -man -Tutf8 -ww -rHY=0 $page >/dev/null; done 2>" +
                             (directory / "warnings");
  ASSERT_EQ(std::system(format.c_str()), 0);
  EXPECT_EQ(FileText(directory / "warnings"), "");
}

// What bash would offer behind these words; the last may be cut short.
std::set<std::string> Completions(const Directory& directory, const std::string& words) {
  WriteFile(directory / "tessaline.bash", RunTool("--write-completion").out);
  WriteFile(directory / "ask.bash", "source " + (directory / "tessaline.bash") + "\nCOMP_WORDS=(" +
                                        words +
                                        ")\nCOMP_CWORD=$((${#COMP_WORDS[@]}-1))\n_tessaline\n"
                                        "printf '%s\\n' \"${COMPREPLY[@]}\"\n");
  const std::string run =
      "bash -u " + (directory / "ask.bash") + " >" + (directory / "answer") + " 2>&1";
  EXPECT_EQ(std::system(run.c_str()), 0);
  std::istringstream lines(FileText(directory / "answer"));
  std::set<std::string> answers;
  for (std::string line; std::getline(lines, line);) answers.insert(line);
  return answers;
}

TEST(Completion, KnowsCommandsOptionsModelsAndRegisters) {
  const Directory directory;
  using Words = std::set<std::string>;
  EXPECT_EQ(Completions(directory, "tessaline cap"), Words{"capture"});
  EXPECT_EQ(Completions(directory, "tessaline reg d"), Words{"dump"});
  EXPECT_EQ(Completions(directory, "tessaline reg dump --for"), Words{"--force"});
  EXPECT_EQ(Completions(directory, "tessaline info --virtual K391"),
            (Words{"K3910", "K3910arm_rebuild"}));
  EXPECT_EQ(Completions(directory, "tessaline reg read TRI_"), (Words{"TRI_DELAY", "TRI_SPACING"}));
  EXPECT_EQ(Completions(directory, "tessaline --virtual K3610 capture str"), Words{"strips"});
  EXPECT_EQ(Completions(directory, "tessaline capture strips --format p"),
            (Words{"pgm", "png", "ply"}));
  EXPECT_EQ(Completions(directory, "tessaline led ma"), Words{"magenta"});
  EXPECT_EQ(Completions(directory, "tessaline laser on --sec"), Words{"--seconds"});
  EXPECT_EQ(Completions(directory, "tessaline capture strips --tri"), Words{"--trigger"});
  EXPECT_EQ(Completions(directory, "tessaline recipe save front.json --led ma"), Words{"magenta"});
  EXPECT_EQ(Completions(directory, "tessaline trace re"),
            (Words{"recipe", "record", "reg", "replay"}));
  EXPECT_EQ(Completions(directory, "tessaline trace --virtual K3610 reg re"), Words{"read"});
}

}  // namespace
}  // namespace tessaline_test
