// Things that an application may do without harm to the library: threads that change the same
// register, slow handlers, cancelled threads, closed standard streams.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "api/InterruptedChild.h"
#include "api/StartedBoard.h"
#include "support/Sanitizers.h"
#include "tessaline/fpga.h"

namespace tessaline_test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using ::testing::Contains;
using ::testing::HasSubstr;

// --- One register, two threads ------------------------------------------------------------

class OneRegister : public StartedBoard {};

struct Setting {
  const char* name;
  const fpga::Field& field;
  void (*set)(unsigned value);
};

// All of them are in TRIGGER_CTRL. One thread sets the first two, another thread sets the others.
const Setting kSettings[] = {
    {"global control", fpga::kField.global_control, [](unsigned v) { SetGlobalControl(v); }},
    {"trigger mode", fpga::kField.trigger_mode, [](unsigned v) { SetTriMode(v); }},
    {"delay", fpga::kField.trigger_delay_enable, [](unsigned v) { SetDelayEn(v); }},
    {"delay standard", fpga::kField.trigger_delay_standard,
     [](unsigned v) { SetTriDelayStandard(v); }},
};

TEST_F(OneRegister, LosesNoSetting) {
  tessaline_board_transcript_enable(0);
  constexpr int kRounds = 300;
  std::atomic<bool> over{false};
  std::atomic<int> lost{0};
  const auto change = [&](std::size_t first) {
    for (int i = 0; i < kRounds; ++i) {
      for (std::size_t s = first; s < first + 2; ++s) {
        const unsigned value = static_cast<unsigned>(i) % 2;
        kSettings[s].set(value);
        if (kSettings[s].field.Of(Get(kSettings[s].field.reg)) != value) ++lost;
      }
    }
  };
  std::thread pulses([&] {
    while (!over) TricontrolSWTrigger();
  });
  std::thread other(change, 2);
  change(0);
  other.join();
  over = true;
  pulses.join();
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(fpga::kField.software_trigger.Of(Get(fpga::kReg.TRIGGER_CTRL)), 0u)
      << "a pulse was left set";
}

// The pulse is complete, and no other access is in the middle of it.
TEST_F(OneRegister, IsLeftAloneDuringAPulse) {
  std::atomic<bool> over{false};
  std::thread other([&] {
    while (!over) SetDelayEn(1);
  });
  for (int i = 0; i < 100; ++i) TricontrolSWTrigger();
  over = true;
  other.join();
  const auto accesses = Accesses();
  int pulses = 0;
  for (std::size_t i = 0; i + 1 < accesses.size(); ++i) {
    if (!accesses[i].starts_with("write ")) continue;
    const unsigned long word =
        std::stoul(accesses[i].substr(accesses[i].find("= ") + 2), nullptr, 16);
    if (fpga::kField.software_trigger.Of(static_cast<std::uint32_t>(word)) == 0) continue;
    const auto lowered = static_cast<std::uint32_t>(word) & ~fpga::kField.software_trigger.Mask();
    EXPECT_EQ(accesses[i + 1], Wrote(fpga::kReg.TRIGGER_CTRL, lowered));
    ++pulses;
  }
  EXPECT_EQ(pulses, 100);
}

// --- Handlers that take their time --------------------------------------------------------

class SlowHandler : public StartedBoard {};

TEST_F(SlowHandler, KeepsItsFrameWhileTheFrameIdsAreReset) {
  static std::atomic<int> wiped{0}, frames{0};
  RegisterEventHandler(
      TESSALINE_EVENT_IMAGE,
      reinterpret_cast<tessaline_event_handler>(+[](unsigned width, unsigned height, void* data) {
        const auto* const first = static_cast<const unsigned char*>(data);
        const std::vector<unsigned char> before(first, first + std::size_t{width} * height);
        ReallyWait(milliseconds(60));
        wiped += !std::equal(before.begin(), before.end(), first);
        ++frames;
      }));
  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
  SetTriMode(0);
  SetGlobalControl(1);
  ASSERT_TRUE(Eventually([] { return frames > 0; }));
  const auto start = Clock::now();
  for (int i = 0; i < 8; ++i) EXPECT_EQ(ResetFrameID(), 0);
  const auto took = Clock::now() - start;
  SetGlobalControl(0);
  EXPECT_EQ(wiped, 0);
  EXPECT_LT(took, std::chrono::seconds(4)) << "each waits for one handler at the most";
}

// --- Descriptors --------------------------------------------------------------------------

std::set<int> OpenNumbers() {
  std::set<int> numbers;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    numbers.insert(std::stoi(entry.path().filename()));
  }
  return numbers;
}

class Descriptors : public BoardFixture {
 protected:
  Descriptors() : BoardFixture("K4010") {}
};

TEST_F(Descriptors, AreNoneOfAChildThatExecs) {
  log_set_quiet(true);
  GetLibVersion("K4010");
  const std::set<int> before = OpenNumbers();
  ASSERT_EQ(RegisterHardwareInit(), 0);
  RegisterEventHandler(TESSALINE_EVENT_DA_ARRIVED, [] {});
  ASSERT_EQ(SetDADelayState(1), 0);
  int opened = 0;
  for (const int fd : OpenNumbers()) {
    const int flags = fcntl(fd, F_GETFD);
    if (before.contains(fd) || flags < 0) continue;
    ++opened;
    EXPECT_NE(flags & FD_CLOEXEC, 0)
        << std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd));
  }
  EXPECT_GT(opened, 4);
  EXPECT_EQ(SetDADelayState(0), 0);
}

bool IsNull(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && major(status.st_rdev) == 1 &&
         minor(status.st_rdev) == 3;
}

TEST(StandardStreams, AreNeverDevices) {
  const Outcome outcome = InAChild([] {
    tessaline_board_select("K4010");
    tessaline_board_set_sleep_factor(0);
    for (const int fd : {0, 1, 2}) close(fd);
    GetLibVersion("K4010");
    if (RegisterHardwareInit() != 0) _exit(99);
    log_set_level(TESSALINE_LOG_TRACE);
    SetTriMode(1);
    exit(IsNull(0) && IsNull(1) && IsNull(2) ? 7 : 8);
  });
  ExpectExit(outcome, 7);
  EXPECT_THAT(outcome.events, Contains(HasSubstr("spi0.0 tx ")));
}

// A process that closes the streams later, and between two opens of the library.
TEST(StandardStreams, GetNoDeviceLaterEither) {
  const Outcome outcome = InAChild([] {
    StartUp();
    close(STDIN_FILENO);
    unsigned char settings[16] = {1};
    if (ConfigSave(settings, sizeof settings) != 0 || SetTriMode(1) != 0) _exit(98);
    if (SetDADelayState(1) != 0) _exit(97);
    exit(fcntl(STDIN_FILENO, F_GETFD) < 0 || IsNull(STDIN_FILENO) ? 7 : 8);
  });
  ExpectExit(outcome, 7);
}

// --- Threads of the application that are cancelled ----------------------------------------

class CancelledThread : public StartedBoard {};

TEST_F(CancelledThread, FinishesTheCallThatItIsIn) {
  tessaline_board_transcript_enable(0);
  const int before = OpenDescriptors();
  for (int round = 0; round < 200; ++round) {
    pthread_t thread;
    const auto work = [](void*) -> void* {
      unsigned char settings[16] = {1};
      for (unsigned i = 0;; ++i) {
        SetTriSpacing(100 + i % 100);
        if (i % 8 == 0) ConfigSave(settings, sizeof settings);
        log_log(TESSALINE_LOG_INFO, "a", 1, "x");
        pthread_testcancel();
      }
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, work, nullptr), 0);
    ReallyWait(milliseconds(round % 3));
    pthread_cancel(thread);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    ASSERT_EQ(pthread_mutex_trylock(&fpga_contol), 0) << "round " << round;
    pthread_mutex_unlock(&fpga_contol);
  }
  EXPECT_TRUE(NoDescriptorsAreLeft(before));
}

// --- The rest -----------------------------------------------------------------------------

class Notifiers : public StartedBoard {};

TEST_F(Notifiers, MayBeSwitchedOffByTheirHandlerAndByAnotherThreadAtOnce) {
  tessaline_board_transcript_enable(0);
  RegisterEventHandler(
      TESSALINE_EVENT_EXTERNAL_TRIGGER,
      reinterpret_cast<tessaline_event_handler>(+[](unsigned) { SetExtTriggerState(0); }));
  for (unsigned round = 0; round < 300; ++round) {
    ASSERT_NE(SetExtTriggerState(1), -1);
    std::thread other([round] {
      if (round % 2 == 0) std::this_thread::yield();
      SetExtTriggerState(0);
    });
    tessaline_board_external_trigger(static_cast<int>(round % 2));
    other.join();
  }
  SetExtTriggerState(0);
  EXPECT_EQ(Get(fpga::kReg.IRQ_CTRL) & fpga::kField.external_trigger_irq_enable.Mask(), 0u);
}

TEST_F(Notifiers, AreSwitchedAThousandTimesUnderInterrupts) {
  tessaline_board_transcript_enable(0);
  static std::atomic<int> arrived{0};
  RegisterEventHandler(TESSALINE_EVENT_DA_ARRIVED, [] { ++arrived; });
  std::jthread hardware([](std::stop_token over) {
    while (!over.stop_requested()) tessaline_board_da_arrived();
  });
  for (int round = 0; round < 1000; ++round) {
    ASSERT_EQ(SetDADelayState(1), 0);
    ASSERT_EQ(SetDADelayState(0), 0);
    const int at_off = arrived;
    if (round % 50 == 0) ReallyWait(milliseconds(1));
    ASSERT_EQ(arrived, at_off);
  }
}

// The library's SIGINT handler logs the time, and must not load the zone's file at that point.
TEST(TimeZone, IsLoadedAtTheStart) {
  ExpectExit(InAChild([] {
               setenv("TZ", "TST+5", 1);
               StartUp();
               _exit(std::string(tzname[0]) == "TST" ? 7 : 8);
             }),
             7);
}

class CollectModes : public StartedBoard {
 protected:
  static struct tessaline_capture_statistics Images() {
    struct tessaline_capture_statistics counted {};
    TessalineGetCaptureStatistics(TESSALINE_STREAM_IMAGES, &counted);
    return counted;
  }
  static void Capture() {
    const auto before = Images().dequeued;
    TricontrolSWTrigger();
    ASSERT_TRUE(Eventually([before] { return Images().dequeued > before; }));
  }
};

TEST_F(CollectModes, ARefusedOneHidesNoLoss) {
  SetTriMode(2);
  SetGlobalControl(1);
  Capture();
  tessaline_board_frame_fault(0, TESSALINE_BOARD_FRAME_LOST, 0, 1);
  TricontrolSWTrigger();
  ReallyWait(milliseconds(50));
  EXPECT_EQ(SetCollectMode(2), -1);
  Capture();
  EXPECT_EQ(Images().id_gaps, 1u);
}

}  // namespace
}  // namespace tessaline_test
