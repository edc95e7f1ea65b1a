// Recordings of applications, and without one: what is in the file whatever happens to either side.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "Recorded.h"

namespace tessaline_test {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Gt;
using ::testing::HasSubstr;
using ::testing::Not;

// Writing it to the disk shall not take the machine's memory.
const std::string kSmall = "record --memory 32 -o ";

// TRI_SPACING, in 20 ns ticks: the application sets 4321 us.
constexpr std::uint32_t kSpacing = 4321 * 50;

class Record : public ::testing::Test {
 protected:
  static bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }
  static auto Printed(const std::string& part) {
    return [part](const ToolResult& so_far) { return Has(so_far.out, part); };
  }
  static std::uint64_t Times(const Recorded& run, std::uint32_t value) {
    std::uint64_t times = 0;
    for (const auto& [address, values] : run.registers) {
      times += static_cast<std::uint64_t>(std::ranges::count(values, value));
    }
    return times;
  }
  // The process that the recorder has started.
  static pid_t ChildOf(pid_t process) {
    const std::string number = std::to_string(process);
    return std::atoi(FileText("/proc/" + number + "/task/" + number + "/children").c_str());
  }
  static bool Runs(pid_t process) { return kill(process, 0) == 0; }

  const Directory directory_;
  const std::string run_ = directory_ / "run.db3";
};

TEST_F(Record, TakesFramesItself) {
  const ToolResult result = ToolRun(kSmall + run_ + " -t 1 --json --virtual K3610").Run();
  ASSERT_EQ(result.status, kOk) << result.err;
  const Recorded run(run_);
  EXPECT_TRUE(run.closed);
  EXPECT_GT(run.strips, 0u);
  EXPECT_EQ(result.Json()["strips"], run.strips);
  EXPECT_EQ(run.first, "/tessaline/device");
  EXPECT_THAT(run.device, Contains(HasSubstr("\"recipe\"")));
  EXPECT_THAT(run.device, Contains(HasSubstr("\"model\":\"K3610\"")));
  EXPECT_THAT(run.device, Contains(HasSubstr(R"("fpga": "0x00150100")")));
  EXPECT_GT(run.registers_before_frames, 50u);
}

TEST_F(Record, TakesWhatItIsAskedFor) {
  const auto take = [this](const std::string& what) {
    std::filesystem::remove(run_);
    EXPECT_EQ(ToolRun(kSmall + run_ + " -t 1 --virtual K3610 " + what).Run().status, kOk);
    return Recorded(run_);
  };
  const Recorded images = take("--images");
  EXPECT_GT(images.images, 0u);
  EXPECT_EQ(images.strips, 0u);
  EXPECT_TRUE(images.registers.empty());
  const Recorded registers = take("--registers");
  EXPECT_EQ(registers.images + registers.strips, 0u);
  EXPECT_GT(registers.registers.size(), 50u);
}

TEST_F(Record, AnApplicationsFramesRegistersAndLog) {
  const ToolResult result = OnBoard(kSmall + run_ + " --json" + Application("exit 7")).Run();
  EXPECT_EQ(result.status, 7) << result.err;
  EXPECT_THAT(result.out, AllOf(HasSubstr("started\n"), HasSubstr("\"application_status\": 7")));
  const Recorded run(run_);
  EXPECT_GE(run.strips, 20u);
  EXPECT_GT(run.registers_before_frames, 50u);
  EXPECT_EQ(Times(run, kSpacing), 1u) << "the application's setting";
  EXPECT_FALSE(run.log.empty());
  EXPECT_THAT(run.device, Contains(HasSubstr("recorded K3610 exit 7")));
}

// A program that loads the library for itself alone.
TEST_F(Record, AnApplicationInPython) {
  const std::string program = directory_ / "load.py";
  WriteFile(program,
            "import ctypes, os, sys\n"
            "ctypes.CDLL(sys.argv[1], mode=os.RTLD_LOCAL | os.RTLD_NOW)\n"
            "print('loaded')\n");
  const std::string library =
      std::filesystem::path(TESSALINE_BOARD_LIBRARY).parent_path() / "libtessaline.so";
  const ToolResult result = OnBoard(kSmall + run_ + " -- python3 " + program + " " + library).Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("loaded"));
  EXPECT_THAT(result.err, HasSubstr("the application was handed no frames"));
}

TEST_F(Record, AnApplicationGetsNoOtherDescriptors) {
  const auto list = [](const std::string& text) {
    std::vector<std::string> numbers;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      if (line.find_first_not_of("0123456789") == line.npos) numbers.push_back(line);
    }
    return numbers;
  };
  ToolRun recorded(kSmall + run_ + " -- ls /proc/self/fd");
  const ToolResult direct = ToolRun("/proc/self/fd").Program("/bin/ls", "").Run();
  EXPECT_EQ(list(recorded.Run().out), list(direct.out));
  EXPECT_GE(list(direct.out).size(), 3u);
}

TEST_F(Record, AnApplicationThatCannotBeStarted) {
  const ToolResult missing = ToolRun(kSmall + run_ + " -- /nothing/here").Run();
  EXPECT_EQ(missing.status, kFile);
  EXPECT_THAT(missing.err, HasSubstr("cannot start /nothing/here: No such file or directory"));
  EXPECT_EQ(ToolRun(kSmall + run_ + " -- /etc/passwd").Run().status, kNoPermission);
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path())) << "it left a file";
}

TEST_F(Record, FilesThatCannotBeWritten) {
  WriteFile(run_, "mine");
  EXPECT_EQ(ToolRun(kSmall + run_ + " -- true").Run().status, kExists);
  EXPECT_EQ(FileText(run_), "mine");
  const ToolResult unwritable = ToolRun(kSmall + "/proc/run.db3 -- touch " + run_ + "2").Run();
  EXPECT_THAT(unwritable.status, ::testing::AnyOf(kFile, kNoPermission)) << unwritable.err;
  EXPECT_FALSE(std::filesystem::exists(run_ + "2")) << "the application was started";
}

// Not even where a recorder runs that would take the frames.
TEST_F(Record, ARehearsalTouchesNothing) {
  for (const char* ring : {"", "somewhere"}) {
    const ToolResult result = ToolRun(kSmall + run_ + " --dry-run --virtual K3610")
                                  .With("TESSALINE_RECORD", ring)
                                  .With("TESSALINE_BOARD_TRANSCRIPT", directory_ / "transcript")
                                  .Run();
    EXPECT_EQ(result.status, kOk) << result.err;
    EXPECT_THAT(result.out, HasSubstr("Nothing was touched"));
    EXPECT_THAT(FileText(directory_ / "transcript"), Not(HasSubstr("gpio")));
    EXPECT_FALSE(std::filesystem::exists(run_));
  }
}

TEST_F(Record, WhatCannotBeTogether) {
  EXPECT_EQ(ToolRun(kSmall + run_ + " --on-error -- true").Run().status, kUsage);
  EXPECT_EQ(ToolRun(kSmall + run_ + " --ring never -- true").Run().status, kUsage);
  EXPECT_EQ(ToolRun(kSmall + run_ + " --spacing 1000 -- true").Run().status, kUsage);
}

// However it ends, all that it got is in a file that is whole.
class RecordKilled : public Record, public ::testing::WithParamInterface<int> {};

TEST_P(RecordKilled, ClosesTheFile) {
  const std::string number = std::to_string(GetParam());
  const ToolResult result = OnBoard(kSmall + run_ + Application("kill " + number)).Run();
  EXPECT_EQ(result.status, 128 + GetParam()) << result.err;
  const Recorded run(run_);
  EXPECT_TRUE(run.closed);
  EXPECT_GE(run.strips, 20u);
}
INSTANTIATE_TEST_SUITE_P(By, RecordKilled, ::testing::Values(SIGKILL, SIGSEGV));

class RecordSignal : public Record, public ::testing::WithParamInterface<int> {};

TEST_P(RecordSignal, IsPassedOn) {
  const ToolResult result =
      OnBoard(kSmall + run_ + Application("wait"))
          .When(Printed("started"), [](pid_t tool) { kill(tool, GetParam()); })
          .Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("ended by " + std::to_string(GetParam())));
  EXPECT_TRUE(Recorded(run_).closed);
}
INSTANTIATE_TEST_SUITE_P(To, RecordSignal, ::testing::Values(SIGINT, SIGTERM));

TEST_F(Record, TimeInterruptsTheApplication) {
  const ToolResult result = OnBoard(kSmall + run_ + " -t 3" + Application("wait")).Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("ended by 2"));
}

// The application runs on unharmed, and what was synced is there.
TEST_F(Record, ARecorderThatIsKilled) {
  pid_t application = 0;
  const std::string log = directory_ / "log";
  WriteFile(log, "");
  const ToolResult result =
      OnBoard(kSmall + run_ + Application("wait"))
          .PrintingTo(log)
          .When([&](const ToolResult&) { return Has(FileText(log), "started"); },
                [&](pid_t tool) {
                  std::this_thread::sleep_for(3000ms);
                  application = ChildOf(tool);
                  kill(tool, SIGKILL);
                  std::this_thread::sleep_for(300ms);
                  EXPECT_TRUE(Runs(application));
                  kill(application, SIGTERM);
                })
          .Run();
  EXPECT_EQ(result.status, 128 + SIGKILL);
  for (int i = 0; i < 200 && !Has(FileText(log), "ended by"); ++i)
    std::this_thread::sleep_for(20ms);
  EXPECT_THAT(FileText(log), HasSubstr("ended by 15"));
  const Recorded run(run_);
  EXPECT_FALSE(run.closed);
  EXPECT_GE(run.strips, 20u);
}

TEST_F(Record, OneApplicationAfterAnother) {
  const std::string script = directory_ / "both.sh";
  WriteFile(script, std::string(TESSALINE_RECORDED) + " K3610 kill 9\n" + TESSALINE_RECORDED +
                        " K3610 exit 3\n");
  const ToolResult result = OnBoard(kSmall + run_ + " -- sh " + script).Run();
  EXPECT_EQ(result.status, 3) << result.err;
  const Recorded run(run_);
  EXPECT_THAT(run.device, Contains(HasSubstr("kill 9")));
  EXPECT_THAT(run.device, Contains(HasSubstr("exit 3")));
  EXPECT_GE(run.strips, 40u);
  EXPECT_EQ(Times(run, kSpacing), 2u);
}

TEST_F(Record, OneOfTwoApplicationsAtOnce) {
  const std::string script = directory_ / "both.sh";
  const std::string log = directory_ / "log";
  WriteFile(script, std::string(TESSALINE_RECORDED) + " K3610 wait > " + log +
                        " &\nuntil grep -q started " + log + "; do sleep 0.02; done\n" +
                        TESSALINE_RECORDED + " K3610 exit 5\nkill $!\nwait\n");
  const ToolResult result = OnBoard(kSmall + run_ + " -- sh " + script).Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.err, HasSubstr("is not recorded: another process is"));
  const Recorded run(run_);
  EXPECT_THAT(run.device, Contains(HasSubstr("K3610 wait")));
  EXPECT_THAT(run.device, Not(Contains(HasSubstr("exit 5"))));
}

// The application runs on, and its status gives way to the tool's.
TEST_F(Record, AFullDisk) {
  const ToolResult result = OnBoard(kSmall + run_ + " --images" + Application("imagewait"))
                                .When(Printed("started"),
                                      [](pid_t tool) {
                                        // For the tool alone, as a quota would be.
                                        const rlimit limit{600'000, 600'000};
                                        prlimit(tool, RLIMIT_FSIZE, &limit, nullptr);
                                        std::this_thread::sleep_for(2000ms);
                                        kill(tool, SIGTERM);
                                      })
                                .Run();
  EXPECT_EQ(result.status, kFile) << result.out;
  EXPECT_THAT(result.out, HasSubstr("ended by 15"));
  EXPECT_THAT(result.err, HasSubstr("the application runs on, and nothing more is recorded"));
}

// A disk that takes nothing for a while.
TEST_F(Record, CountsWhatItDrops) {
  const ToolResult result =
      OnBoard("record --memory 16 --json -o " + run_ + Application("imagewait"))
          .When(Printed("started"),
                [](pid_t tool) {
                  kill(tool, SIGSTOP);
                  std::this_thread::sleep_for(1500ms);
                  kill(tool, SIGCONT);
                  std::this_thread::sleep_for(200ms);
                  kill(tool, SIGTERM);
                })
          .Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  const Recorded run(run_);
  EXPECT_GT(run.losses.frames_by_recorder, 0u);
  EXPECT_THAT(result.out,
              HasSubstr("\"dropped_frames\": " + std::to_string(run.losses.frames_by_recorder)));
}

class FlightRecorder : public Record {
 protected:
  ToolRun Fly(const std::string& options, const std::string& what) const {
    return OnBoard(kSmall + run_ + " --ring 30s " + options + Application(what))
        .With("TESSALINE_BOARD_PACE", "real");
  }
};

TEST_F(FlightRecorder, WritesNothingIfNothingHappens) {
  const ToolResult result = Fly("", "exit 0").Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("nothing happened"));
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
}

TEST_F(FlightRecorder, ASignalWritesAFileOfItsOwnEachTime) {
  const ToolResult result = Fly("--after 0.1s", "wait")
                                .When(Printed("started"),
                                      [](pid_t tool) {
                                        for (int i = 0; i < 2; ++i) {
                                          std::this_thread::sleep_for(1200ms);
                                          kill(tool, SIGUSR1);
                                        }
                                        std::this_thread::sleep_for(1200ms);
                                        kill(tool, SIGTERM);
                                      })
                                .Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_THAT(result.out, HasSubstr("because: SIGUSR1"));
  const Recorded first(run_);
  const Recorded second(directory_ / "run-2.db3");
  EXPECT_FALSE(std::filesystem::exists(directory_ / "run-3.db3"));
  for (const Recorded* run : {&first, &second}) {
    EXPECT_TRUE(run->closed);
    EXPECT_EQ(run->first, "/tessaline/device");
    EXPECT_GT(run->strips, 0u);
  }
  // The second begins in the middle: with the state, whose stamp is no later than the frames'.
  EXPECT_GT(second.registers_before_frames, 50u);
  EXPECT_GE(second.ns_before_first_frame, 0);
  EXPECT_THAT(second.device, Contains(HasSubstr("\"model\":\"K3610\"")));
  EXPECT_GE(Times(second, kSpacing), 1u);
}

TEST_F(FlightRecorder, ACrash) {
  EXPECT_EQ(Fly("--on-error", "kill 11").Run().status, 128 + SIGSEGV);
  const Recorded run(run_);
  EXPECT_GE(run.strips, 20u);
}

TEST_F(FlightRecorder, TheErrorOfEveryStartIsNone) {
  // At this pace no frame is lost, however busy the machine is.
  const ToolResult result = Fly("--on-error", "exit 0").With("TESSALINE_BOARD_PACE", "free").Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_FALSE(std::filesystem::exists(run_));
  EXPECT_THAT(result.out, HasSubstr("nothing happened"));
}

TEST_F(FlightRecorder, ALostFrame) {
  const ToolResult result = Fly("--on-error --after 0.1s", "wait")
                                .With("TESSALINE_BOARD_FAULTS", "frame strips lost 20 2")
                                .When(Printed("started"),
                                      [](pid_t tool) {
                                        std::this_thread::sleep_for(2500ms);
                                        kill(tool, SIGTERM);
                                      })
                                .Run();
  EXPECT_EQ(result.status, kOk) << result.err;
  EXPECT_TRUE(std::filesystem::exists(run_));
  EXPECT_THAT(result.out, Not(HasSubstr("lost by the device 0")));
  EXPECT_THAT(result.out, HasSubstr("because: a frame was lost"));
}

}  // namespace
}  // namespace tessaline_test
