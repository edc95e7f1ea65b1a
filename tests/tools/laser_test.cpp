// The laser is off when a sub-command has ended, however it ended.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class LaserOff : public ::testing::Test {
 protected:
  ToolRun Tool(const std::string& arguments) const {
    return ToolRun(arguments + " --virtual K3610")
        .With("TESSALINE_BOARD_TRANSCRIPT", transcript_)
        .With("LASER_WITNESS", witness_)
        .With("LD_PRELOAD", TESSALINE_LASER_WITNESS);
  }
  // While the program runs; the transcript comes at its end.
  bool IsDark() const {
    const std::string states = FileText(witness_);
    return states.find('1') != std::string::npos && states.back() == '0';
  }
  // Whether both lines were driven, and both are off since.
  bool WentOff() const { return LineWentOff("gpio907") && LineWentOff("gpio934"); }
  bool LineWentOff(const std::string& line) const {
    const std::string events = FileText(transcript_);
    const std::size_t on = events.rfind("gpio write " + line + "/value 1");
    const std::size_t off = events.rfind("gpio write " + line + "/value 0");
    return on != std::string::npos && off != std::string::npos && off > on;
  }

  // How often both lines were switched on.
  int TimesOn() const {
    const std::string events = FileText(transcript_);
    const std::string on = "gpio write gpio907/value 1";
    int times = 0;
    for (std::size_t at = 0; (at = events.find(on, at)) != std::string::npos; ++at) ++times;
    return times;
  }

  const Directory directory_;
  const std::string file_ = directory_ / "scan.csv";
  const std::string transcript_ = directory_ / "transcript.txt";
  const std::string witness_ = directory_ / "laser.txt";
};

TEST_F(LaserOff, AfterACapture) {
  EXPECT_EQ(Tool("capture strips -n 5 -o " + file_).Run().status, kOk);
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, AfterACaptureOnAFullDisk) {
  const ToolResult result =
      Tool("capture strips -n 100000000 -o " + file_).LimitWhenThereIs(file_, 1'000'000).Run();
  EXPECT_EQ(result.status, kFile) << result.err;
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, AfterACaptureWithoutFrames) {
  const ToolResult result = Tool("capture strips -n 5 -o " + file_)
                                .With("TESSALINE_BOARD_FAULTS", "call video1 VIDIOC_DQBUF EIO")
                                .Run();
  EXPECT_EQ(result.status, kUnreachable) << result.err;
  EXPECT_TRUE(WentOff());
}

class LaserOffAtSignal : public LaserOff, public ::testing::WithParamInterface<int> {};

TEST_P(LaserOffAtSignal, InACapture) {
  const ToolResult result = Tool("capture strips -n 100000000 -o " + file_)
                                .SignalWhenFileHas(GetParam(), file_, 300'000)
                                .Run();
  EXPECT_EQ(result.status, kInterrupted) << result.err;
  EXPECT_TRUE(WentOff());
}

TEST_P(LaserOffAtSignal, BeforeItsTime) {
  const ToolResult result = Tool("laser on --seconds 3600")
                                .When([](const ToolResult& now) { return CountLines(now.err) > 0; },
                                      [](pid_t child) { kill(child, GetParam()); })
                                .Run();
  EXPECT_EQ(result.status, kInterrupted);
  EXPECT_THAT(result.err, HasSubstr("The laser is ON"));
  EXPECT_TRUE(WentOff());
}

TEST_P(LaserOffAtSignal, WhileWatching) {
  const ToolResult result = Tool("watch --json --interval 0.05")
                                .When([](const ToolResult& now) { return CountLines(now.out) > 1; },
                                      [](pid_t child) { kill(child, GetParam()); })
                                .Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_TRUE(WentOff());
}

// A key, kill, another key, a terminal that is closed.
INSTANTIATE_TEST_SUITE_P(Signals, LaserOffAtSignal,
                         ::testing::Values(SIGINT, SIGTERM, SIGQUIT, SIGHUP));

// Waits until the process has stopped.
bool Stops(pid_t child) {
  int status = 0;
  return waitpid(child, &status, WUNTRACED) == child && WIFSTOPPED(status);
}

// What is stopped by Ctrl-Z, goes on, and is ended by another signal. `dark`: whether it was off
// while it was stopped.
ToolRun& StoppedOnce(ToolRun& run, std::function<bool(const ToolResult&)> when, int end,
                     std::function<bool()> is_dark, bool& dark) {
  return run.InAGroupOfItsOwn().When(std::move(when), [&dark, is_dark, end](pid_t child) {
    kill(child, SIGTSTP);
    dark = Stops(child) && is_dark();
    kill(child, SIGCONT);
    usleep(100'000);  // it is light again
    kill(child, end);
  });
}

TEST_F(LaserOff, WhileACaptureIsStopped) {
  bool dark = false;
  ToolRun run = Tool("capture strips -n 100000000 -o " + file_);
  const auto captures = [this](const ToolResult&) {
    std::error_code ignored;
    return std::filesystem::exists(file_) && std::filesystem::file_size(file_, ignored) > 300'000;
  };
  EXPECT_EQ(StoppedOnce(
                run, captures, SIGTERM, [this] { return IsDark(); }, dark)
                .Run()
                .status,
            kInterrupted);
  EXPECT_TRUE(dark);
  EXPECT_EQ(TimesOn(), 2);
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, WhileItsTimeIsStopped) {
  bool dark = false;
  ToolRun run = Tool("laser on --seconds 3600");
  const auto is_on = [](const ToolResult& now) { return CountLines(now.err) > 0; };
  EXPECT_EQ(StoppedOnce(
                run, is_on, SIGHUP, [this] { return IsDark(); }, dark)
                .Run()
                .status,
            kInterrupted);
  EXPECT_TRUE(dark);
  EXPECT_EQ(TimesOn(), 2);
  EXPECT_TRUE(WentOff());
}

struct Example {
  const char* name;
  const char* program;
  const char* arguments;
};

std::ostream& operator<<(std::ostream& out, const Example& one) { return out << one.name; }

// The programs that users copy.
class LaserOffInExample : public LaserOff {
 protected:
  ToolRun Program(const Example& one) const {
    return ToolRun(one.arguments)
        .Program(one.program, "K3610")
        .In(directory_.path())
        .With("TESSALINE_BOARD_SLEEP", "1")
        .With("TESSALINE_BOARD_PACE", "real")
        .With("TESSALINE_BOARD_TRANSCRIPT", transcript_)
        .With("LASER_WITNESS", witness_)
        .With("LD_PRELOAD", TESSALINE_LASER_WITNESS ":" TESSALINE_BOARD_LIBRARY);
  }
};

class LaserOffInEveryExample : public LaserOffInExample,
                               public ::testing::WithParamInterface<Example> {};

TEST_P(LaserOffInEveryExample, AtItsEnd) {
  EXPECT_EQ(Program(GetParam()).Run().status, 0);
  EXPECT_TRUE(WentOff());
}

constexpr Example kStrips{"Strips", TESSALINE_STRIPS, "K3610"};

INSTANTIATE_TEST_SUITE_P(Programs, LaserOffInEveryExample,
                         ::testing::Values(kStrips, Example{"Images", TESSALINE_IMAGES, "K3610"},
                                           Example{"ScanDemo", TESSALINE_SCAN_DEMO,
                                                   "--model K3610"}),
                         [](const auto& info) { return std::string(info.param.name); });

// It is lit from some hundred milliseconds after its start on, for five seconds.
std::function<bool(const ToolResult&)> InTheMiddle() {
  return [start = std::chrono::steady_clock::now()](const ToolResult&) {
    return std::chrono::steady_clock::now() - start > std::chrono::milliseconds(2500);
  };
}

TEST_F(LaserOffInExample, AtAnySignal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
    const ToolResult result =
        Program(kStrips).When(InTheMiddle(), [signal](pid_t child) { kill(child, signal); }).Run();
    EXPECT_THAT(result.out, Not(HasSubstr(" strips, frames"))) << "it came to its own end";
    EXPECT_TRUE(WentOff()) << strsignal(signal);
  }
}

TEST_F(LaserOffInExample, WhileStopped) {
  bool dark = false;
  ToolRun run = Program(kStrips);
  StoppedOnce(
      run, InTheMiddle(), SIGTERM, [this] { return IsDark(); }, dark)
      .Run();
  EXPECT_TRUE(dark);
  EXPECT_EQ(TimesOn(), 2);
  EXPECT_TRUE(WentOff());
}

// What the sample unit does when the application has ended, however it did.
TEST(SampleUnit, SwitchesTheLinesOff) {
  const Directory directory;
  const std::string unit = FileText(TESSALINE_SOURCE "/packaging/tessaline-application.service");
  const std::string key = "ExecStopPost=+";
  const std::size_t begin = unit.find(key) + key.size();
  std::string command = unit.substr(begin, unit.find('\n', begin) - begin);
  const std::string gpio = "/sys/class/gpio";
  command.replace(command.find(gpio), gpio.size(), directory.path());
  for (const char* line : {"907", "934"}) {
    std::filesystem::create_directory(directory / ("gpio" + std::string(line)));
    WriteFile(directory / ("gpio" + std::string(line) + "/value"), "1\n");
  }
  setenv("TESSALINE_LINES", "907 934 961 962 963 969", 1);
  EXPECT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(FileText(directory / "gpio907/value"), "0\n");
  EXPECT_EQ(FileText(directory / "gpio934/value"), "0\n");
}

// A file that is somebody's to read.
class LaserOffAtPipe : public LaserOff {
 protected:
  LaserOffAtPipe() : made_(mkfifo(path_.c_str(), 0600) == 0) {}
  ToolRun EndlessCapture() const {
    return Tool("capture strips -n 100000000 --force --format csv -o " + path_);
  }
  // Bytes that were written and not read.
  int Waiting() const {
    int bytes = 0;
    return ioctl(reader_, FIONREAD, &bytes) == 0 ? bytes : 0;
  }

  const std::string path_ = directory_ / "pipe";
  const bool made_;
  const int reader_ = open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
};

// The tool waits for the reader, who does nothing: it writes more at a time than a pipe takes.
TEST_F(LaserOffAtPipe, AtTheSecondCtrlC) {
  ASSERT_TRUE(made_);
  const ToolResult result = EndlessCapture()
                                .When([this](const ToolResult&) { return Waiting() > 1 << 15; },
                                      [](pid_t child) {
                                        kill(child, SIGINT);
                                        kill(child, SIGTERM);  // two of one kind may become one
                                      })
                                .Run();
  EXPECT_GT(result.status, 128);
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOffAtPipe, SomeSecondsAfterOneRequest) {
  ASSERT_TRUE(made_);
  bool dark = false;
  EndlessCapture()
      .When([this](const ToolResult&) { return Waiting() > 1 << 15; },
            [this, &dark](pid_t child) {
              kill(child, SIGTERM);
              for (int i = 0; i < 200 && !dark; ++i) {
                usleep(100'000);
                dark = IsDark();
              }
              kill(child, SIGINT);
            })
      .Run();
  EXPECT_TRUE(dark);
}

TEST_F(LaserOffAtPipe, WhenItsReaderHasGone) {
  ASSERT_TRUE(made_);
  const ToolResult result = EndlessCapture()
                                .When([this](const ToolResult&) { return Waiting() > 0; },
                                      [this](pid_t) { close(reader_); })
                                .Run();
  EXPECT_EQ(result.status, kFile);
  EXPECT_THAT(result.err, HasSubstr("Broken pipe"));
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, AfterWatching) {
  EXPECT_EQ(Tool("watch --time 0.3").Run().status, kOk);
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, WhenNobodyWatches) {
  const ToolResult result = Tool("watch --json --interval 0.05").ReadingLines(1).Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, WhenTheViewCannotBeWritten) {
  const ToolResult result = Tool("watch --json").PrintingTo("/dev/full").Run();
  EXPECT_EQ(result.status, kFile);
  EXPECT_THAT(result.err, HasSubstr("No space left on device"));
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, AfterTheCheckThatDrivesIt) {
  EXPECT_EQ(Tool("check --laser").Run().status, kOk);
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, AfterTheCheckThatSeesNoStrips) {
  const ToolResult result =
      Tool("check --laser").With("TESSALINE_BOARD_FAULTS", "call video1 VIDIOC_DQBUF EIO").Run();
  EXPECT_EQ(result.status, kNegative);
  EXPECT_TRUE(WentOff());
}

TEST_F(LaserOff, AfterItsTime) {
  EXPECT_EQ(Tool("laser on --seconds 0.1").Run().status, kOk);
  EXPECT_TRUE(WentOff());
}

// Its first line is lit already when the second refuses.
TEST_F(LaserOff, WhenOneLineOnlyCanBeDriven) {
  const ToolResult result =
      Tool("laser on").With("TESSALINE_BOARD_FAULTS", "call gpio open EACCES 18 1").Run();
  EXPECT_EQ(result.status, kNegative);
  EXPECT_THAT(result.err, HasSubstr("OpenLaser() was refused"));
  EXPECT_TRUE(LineWentOff("gpio907"));
  EXPECT_THAT(FileText(transcript_), Not(HasSubstr("gpio934/value 1")));
}

TEST_F(LaserOff, NeverOnWithoutBeingAsked) {
  Tool("check").Run();
  EXPECT_THAT(FileText(transcript_), Not(HasSubstr("gpio907/value 1")));
  Tool("capture strips -n 5 --laser off -o " + file_).Run();
  EXPECT_THAT(FileText(transcript_), Not(HasSubstr("gpio907/value 1")));
}

}  // namespace
}  // namespace tessaline_test
