// What signals with a handler must not do: cut a pause short, or make a system call fail.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "support/BoardFixture.h"
#include "support/LoggedLines.h"
#include "support/Sanitizers.h"
#include "support/Waiting.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {
namespace {

using std::chrono::duration;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using ::testing::IsEmpty;

volatile sig_atomic_t signals_handled = 0;

// The handler has no SA_RESTART, which would not help a pause.
void Handle(int signal_number) {
  struct sigaction action {};
  action.sa_handler = [](int) { signals_handled = signals_handled + 1; };
  sigaction(signal_number, &action, nullptr);
}

// Sends a signal to this process at regular intervals.
class Timer {
 public:
  explicit Timer(int microseconds) {
    signals_handled = 0;
    Handle(SIGALRM);
    const itimerval every{{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &every, nullptr);
  }
  ~Timer() {
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GT(signals_handled, 2);  // the thread sanitizer delays some
  }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
};

class Interrupted : public BoardFixture {
 protected:
  explicit Interrupted(const char* model = "K3610") : BoardFixture(model), model_(model) {}
  void SetUp() override {
    BoardFixture::SetUp();
    log_set_quiet(true);
    GetLibVersion(model_);
  }

  static double Seconds(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return duration<double>(Clock::now() - start).count();
  }

  const LoggedErrors errors_;

 private:
  const char* model_;
};

// There are 32 pages, with a pause of 10 ms after each.
TEST_F(Interrupted, ASettingsBlockIsSavedWhole) {
  tessaline_board_set_sleep_factor(1);
  unsigned char block[512];
  for (unsigned i = 0; i < sizeof block; ++i) block[i] = static_cast<unsigned char>(i * 7 + 1);
  const Timer timer(1000);
  EXPECT_GE(Seconds([&] { EXPECT_EQ(ConfigSave(block, sizeof block), 0); }), 0.32);
  for (unsigned i = 0; i < sizeof block; ++i) {
    ASSERT_EQ(tessaline_board_chip_get("eeprom", i), block[i]) << i;
  }
}

TEST_F(Interrupted, OneChildThatEndsDoesNoHarmEither) {
  tessaline_board_set_sleep_factor(1);
  Handle(SIGCHLD);
  const pid_t child = fork();
  if (child == 0) {
    ReallyWait(milliseconds(100));
    _exit(0);
  }
  unsigned char block[512] = {1};
  EXPECT_EQ(ConfigSave(block, sizeof block), 0);
  waitpid(child, nullptr, 0);
}

// The signals come faster than the kernel's timer slack, which makes every sleep longer.
TEST_F(Interrupted, APauseComesToItsEnd) {
  ASSERT_EQ(RegisterHardwareInit(), 0);
  tessaline_board_set_sleep_factor(1);
  const Timer timer(40);
  const double seconds = Seconds([] { EXPECT_EQ(OpenLaser(), 0); });
  EXPECT_GE(seconds, 0.05);
  EXPECT_LT(seconds, 5);
}

TEST_F(Interrupted, TheFirstRequestIsForTheWholePause) {
  ASSERT_EQ(RegisterHardwareInit(), 0);
  tessaline_board_set_sleep_factor(1);
  tessaline_board_transcript_clear();
  const Timer timer(1000);
  OpenLaser();
  std::vector<std::string> sleeps = Steps();
  ASSERT_GT(sleeps.size(), 1u);
  EXPECT_EQ(sleeps[0], Slept(50'000));
  EXPECT_LT(std::stoi(sleeps[1].substr(6)), 50'000) << "and then for what is left";
}

class InterruptedStart : public Interrupted {
 protected:
  InterruptedStart() : Interrupted("K4010") {}
};

// The start has more than five seconds of pauses. This test sleeps three tenths of them.
TEST_F(InterruptedStart, WaitsForTheSensorToPowerUp) {
  tessaline_board_set_sleep_factor(0.3);
  double seconds = 0;
  {
    const Timer timer(1000);
    seconds = Seconds([] { EXPECT_EQ(RegisterHardwareInit(), 0); });
  }
  EXPECT_GE(seconds, 1.5);
  tessaline_board_set_sleep_factor(0);
}

// --- System calls

struct Call {
  const char* device;
  const char* operation;
  int (*make)();  // 0 when it succeeds
};

constexpr unsigned char kSettings[16] = {1, 2, 3};

const Call kCalls[] = {
    {"fpga", "open", [] { return SetTriMode(1); }},
    {"i2c-0", "open", [] { return ConfigSave(const_cast<unsigned char*>(kSettings), 16); }},
    {"i2c-0", "I2C_RDWR", [] { return ConfigSave(const_cast<unsigned char*>(kSettings), 16); }},
    {"i2c-0", "open", [] { return SetCmosGain(1) == 1 ? 0 : -1; }},
    {"i2c-0", "I2C_RDWR", [] { return SetCmosGain(1) == 1 ? 0 : -1; }},
    {"i2c-0", "I2C_RETRIES", [] { return SetCmosGain(1) == 1 ? 0 : -1; }},
    {"gpio", "open", OpenLaser},
    {"gpio", "write", OpenLaser},
    {"video0", "VIDIOC_TRY_FMT", [] { return SetROI1(0, 0, 640, 480); }},
    {"iio", "open", [] { return GetCpuTemp() > 0 ? 0 : -1; }},
    {"iio", "read", [] { return GetCpuTemp() > 0 ? 0 : -1; }},
    {"uio0", "open", [] { return SetExtTriggerState(1); }},
};

class InterruptedCall : public Interrupted, public ::testing::WithParamInterface<Call> {};

INSTANTIATE_TEST_SUITE_P(Api, InterruptedCall, ::testing::ValuesIn(kCalls), [](const auto& row) {
  std::string name = std::to_string(row.index) + row.param.device + row.param.operation;
  std::erase_if(name, [](char c) { return !isalnum(static_cast<unsigned char>(c)); });
  return name;
});

TEST_P(InterruptedCall, IsMadeAgain) {
  const auto handler = reinterpret_cast<tessaline_event_handler>(+[](unsigned) {});
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER, handler);
  ASSERT_EQ(RegisterHardwareInit(), 0);
  const auto errors = errors_.lines().size();
  Printed();
  tessaline_board_transcript_clear();
  tessaline_board_fault(GetParam().device, GetParam().operation, 0, 3, EINTR);
  EXPECT_EQ(GetParam().make(), 0);
  const std::string made = std::string(GetParam().device) + ' ' + GetParam().operation;
  EXPECT_THAT(Events(), ::testing::Contains(::testing::HasSubstr(": EINTR")))
      << made << " was never interrupted";
  EXPECT_THAT(Printed(), ::testing::Not(::testing::ContainsRegex("rror|failed")));
  // The driver rejects a different format anyway while it streams.
  const bool refused = std::string("video0") == GetParam().device;
  EXPECT_EQ(errors_.lines().size(), errors + (refused ? 1 : 0));
}

// --- Threads of the library

// The application's handlers do not run on these threads, and no signal ends their waits.
TEST_F(Interrupted, ThreadsOfTheLibraryGetNoSignals) {
  static std::atomic<unsigned> blocked{0};
  static std::atomic<bool> asked{false};
  RegisterEventHandler(TESSALINE_EVENT_IMAGE,
                       reinterpret_cast<tessaline_event_handler>(+[](unsigned, unsigned, void*) {
                         sigset_t mask;
                         pthread_sigmask(SIG_BLOCK, nullptr, &mask);
                         for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGALRM, SIGUSR1,
                                                  SIGUSR2, SIGHUP, SIGPIPE, SIGWINCH, SIGRTMIN}) {
                           blocked += sigismember(&mask, number) == 1;
                         }
                         for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
                           blocked += sigismember(&mask, number) == 0;
                         }
                         asked = true;
                       }));
  ASSERT_EQ(RegisterHardwareInit(), 0);
  SetTriMode(2);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  ASSERT_TRUE(Eventually([] { return asked.load(); }));
  EXPECT_EQ(blocked, 15u);
  sigset_t own;
  pthread_sigmask(SIG_BLOCK, nullptr, &own);
  EXPECT_EQ(sigismember(&own, SIGTERM), 0) << "the application's thread keeps its own";
}

// A read that a signal ends does not report an interrupt.
TEST_F(Interrupted, ANotifierTellsOfInterruptsAlone) {
  static std::atomic<int> pulses{0};
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER,
                       reinterpret_cast<tessaline_event_handler>(+[](unsigned) { ++pulses; }));
  ASSERT_EQ(RegisterHardwareInit(), 0);
  ASSERT_EQ(SetExtTriggerState(1), 0);
  const Timer timer(1000);
  tessaline_board_fault("uio0", "read", 0, 3, EINTR);
  ReallyWait(milliseconds(100));
  EXPECT_EQ(pulses, 0);
  tessaline_board_external_trigger(1);
  ASSERT_TRUE(Eventually([] { return pulses == 1; }));
  ReallyWait(milliseconds(50));
  EXPECT_EQ(pulses, 1);
  EXPECT_EQ(SetExtTriggerState(0), 0);
}

}  // namespace
}  // namespace tessaline_test
