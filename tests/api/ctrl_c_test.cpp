// SIGINT in all kinds of processes: with other threads, a full pipe, held locks, their own way to
// end, or children. Each case interrupts its own process.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/InterruptedChild.h"
#include "support/BoardFixture.h"
#include "support/Waiting.h"
#include "tessaline/fpga.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using tessaline_test::Eventually;
using tessaline_test::ExpectExit;
using tessaline_test::InAChild;
using tessaline_test::Outcome;
using tessaline_test::ReallyWait;
using tessaline_test::Report;
using tessaline_test::StartUp;
using tessaline_test::Wrote;
using ::testing::Contains;
using ::testing::Not;

namespace fpga = VeltranoSDK::fpga;

const std::string kStopped = "fpga " + Wrote(fpga::kReg.TRIGGER_CTRL, 0);

class CtrlC : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!tessaline_test::kHandlerReachesTheBoard)
      GTEST_SKIP() << tessaline_test::kSanitizerBlocksSigsegvInHandlers;
  }

  static void ExpectReleased(const Outcome& outcome) {
    ExpectExit(outcome, 0);
    for (const std::string& event :
         {"fpga " + Wrote(fpga::kReg.MASTER_CTRL, 0), kStopped,
          std::string("video0 VIDIOC_STREAMOFF"), std::string("video1 VIDIOC_STREAMOFF")}) {
      EXPECT_THAT(outcome.events, Contains(event));
    }
  }
};

void InterruptLater(pthread_t thread) {
  std::thread([thread] {
    ReallyWait(milliseconds(100));
    pthread_kill(thread, SIGINT);
  }).detach();
}

// The thread has not finished when the process ends, and gets its own interrupt.
TEST_F(CtrlC, LeavesAThreadAloneThatTheEndJoins) {
  const Outcome outcome = InAChild([] {
    static std::atomic<bool> over{false};
    static std::thread other([] { Eventually([] { return over.load(); }); });
    StartUp();
    atexit([] {
      pthread_kill(other.native_handle(), SIGINT);
      ReallyWait(milliseconds(50));
      over = true;
      other.join();
      Report("joined\n");
    });
    raise(SIGINT);
  });
  ExpectReleased(outcome);
  EXPECT_THAT(outcome.events, Contains("joined"));
}

// exit() runs on the thread that was interrupted.
TEST_F(CtrlC, IsTheEndOfAThreadThatADestructorJoinsToo) {
  ExpectReleased(InAChild([] {
    static std::atomic<bool> started{false};
    static std::thread worker;
    StartUp();
    atexit([] { worker.join(); });
    atexit(tessaline_test::ReportTranscript);
    worker = std::thread([] {
      started = true;
      for (;;) pause();
    });
    Eventually([] { return started.load(); });
    pthread_kill(worker.native_handle(), SIGINT);
    for (;;) pause();
  }));
}

TEST_F(CtrlC, ToSeveralThreadsAtOnceEndsTheProcessOnce) {
  for (int round = 0; round < 20; ++round) {
    const Outcome outcome = InAChild([] {
      StartUp();
      // No thread may be interrupted while it starts, because it may hold the heap's lock then.
      static std::atomic<int> idle_threads{0};
      const auto idle = [] {
        ++idle_threads;
        for (;;) pause();
      };
      std::vector<pthread_t> threads{pthread_self()};
      for (int i = 0; i < 3; ++i) {
        std::thread thread(idle);
        threads.push_back(thread.native_handle());
        thread.detach();
      }
      std::thread([threads] {
        while (idle_threads < 4) ReallyWait(milliseconds(1));
        for (const pthread_t thread : threads) pthread_kill(thread, SIGINT);
      }).detach();
      idle();
    });
    ExpectReleased(outcome);
    EXPECT_LT(outcome.took, milliseconds(1900)) << "and without being made to";
    EXPECT_EQ(std::count(outcome.events.begin(), outcome.events.end(), kStopped), 1);
  }
}

// A lock that the interrupted thread holds never becomes free again.
TEST_F(CtrlC, IsTheEndInTwoSecondsWhateverTheEndWaitsFor) {
  const Outcome outcome = InAChild([] {
    static std::mutex of_application;
    StartUp();
    atexit([] { const std::lock_guard lock(of_application); });
    atexit(tessaline_test::ReportTranscript);  // runs before that
    of_application.lock();
    raise(SIGINT);
  });
  ExpectReleased(outcome);
  EXPECT_GT(outcome.took, milliseconds(1900));
  EXPECT_LT(outcome.took, seconds(20)) << "on a busy machine";
}

TEST_F(CtrlC, IsTheLastWriteOfARegister) {
  for (int round = 0; round < 10; ++round) {
    const Outcome outcome = InAChild([round] {
      StartUp();
      for (const milliseconds pause : {milliseconds(0), milliseconds(1)}) {
        std::thread([pause] {
          for (;;) {
            TricontrolSWTrigger();
            fpga_write_addr(fpga::BaseAddress(fpga::Block::kImage1, fpga::kZynqRegions),
                            fpga::kReg.TRI_SPACING.Index(), 7);
            if (pause.count() > 0) ReallyWait(pause);
          }
        }).detach();
      }
      atexit([] { ReallyWait(milliseconds(30)); });  // the other threads continue
      ReallyWait(milliseconds(5 + round));
      raise(SIGINT);
    });
    ExpectReleased(outcome);
    const auto stopped = std::find(outcome.events.rbegin(), outcome.events.rend(), kStopped);
    EXPECT_TRUE(std::none_of(outcome.events.rbegin(), stopped, [](const std::string& event) {
      return event.starts_with("fpga write");
    }));
  }
}

// The FPGA stops even if the application holds the lock.
TEST_F(CtrlC, StopsTheFpgaThoughTheApplicationHoldsTheRegisters) {
  ExpectReleased(InAChild([] {
    StartUp();
    pthread_mutex_lock(&fpga_contol);
    raise(SIGINT);
  }));
}

// The video devices and all of the application's files stay open to the end.
TEST_F(CtrlC, StopsTheFpgaWithoutADescriptorLeft) {
  ExpectReleased(InAChild([] {
    StartUp();
    rlimit few{};
    getrlimit(RLIMIT_NOFILE, &few);
    few.rlim_cur = 100;
    setrlimit(RLIMIT_NOFILE, &few);
    while (dup(STDIN_FILENO) >= 0) {
    }
    raise(SIGINT);
  }));
}

// Other signals also end processes, for example during a change of a register.
TEST_F(CtrlC, IsNotNeededByAProcessWhoseOwnHandlerExits) {
  for (int round = 0; round < 10; ++round) {
    const Outcome outcome = InAChild([round] {
      StartUp();
      signal(SIGTERM, [](int) { exit(7); });
      atexit([] {
        SetGlobalControl(0);
        SetExtTriggerState(0);
      });
      std::thread([round, victim = pthread_self()] {
        ReallyWait(milliseconds(10 + round));
        pthread_kill(victim, SIGTERM);
      }).detach();
      for (unsigned i = 0;; ++i) {
        TricontrolSWTrigger();
        if (round % 2 == 0) SetExtTriggerState(i % 2);
      }
    });
    ExpectExit(outcome, 7);
  }
}

// The child has its own guard of the process's end, although its parent has one too.
TEST_F(CtrlC, EndsAForkedChildThatIsASensorItself) {
  const Outcome outcome = InAChild([] {
    static std::mutex of_application;
    if (RegisterHardwareInit() != -1) _exit(96);  // no product is selected
    const pid_t child = fork();
    if (child == 0) {
      alarm(30);
      StartUp();
      atexit([] { const std::lock_guard lock(of_application); });
      of_application.lock();
      raise(SIGINT);
    }
    int status = 0;
    waitpid(child, &status, 0);
    _exit(WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 7 : 8);
  });
  ExpectExit(outcome, 7);
}

// Sends the standard error stream to a pipe that nothing reads.
void StallTheLog() {
  int ends[2];
  if (pipe(ends) != 0) _exit(97);
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  const std::vector<char> chunk(4096, 'x');
  while (write(ends[1], chunk.data(), chunk.size()) > 0) {
  }
  fcntl(ends[1], F_SETFL, 0);
  dup2(ends[1], STDERR_FILENO);
  log_set_level(TESSALINE_LOG_TRACE);
  log_set_quiet(false);
}

TEST_F(CtrlC, ReachesAThreadThatIsStuckInTheLog) {
  ExpectReleased(InAChild([] {
    StartUp();
    StallTheLog();
    InterruptLater(pthread_self());
    SetTriMode(1);
  }));
}

TEST_F(CtrlC, ReachesAThreadThatWaitsForTheLogOfAnother) {
  const Outcome outcome = InAChild([] {
    StartUp();
    atexit(tessaline_test::ReportTranscript);
    StallTheLog();
    std::thread([] { SetTriMode(1); }).detach();
    InterruptLater(pthread_self());
    pause();
  });
  ExpectExit(outcome, 0);
  EXPECT_LT(outcome.took, seconds(20));
}

TEST_F(CtrlC, EndsAForkedChildAsAnyProcessAndNotItsParentsSensor) {
  const Outcome outcome = InAChild([] {
    StartUp();
    const pid_t child = fork();
    if (child == 0) {
      for (;;) pause();
    }
    ReallyWait(milliseconds(50));
    kill(child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);
    Report(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT ? "by SIGINT\n" : "otherwise\n");
    exit(SetTriMode(1) == 0 ? 7 : 8);
  });
  ExpectExit(outcome, 7);
  EXPECT_THAT(outcome.events, Contains("by SIGINT"));
  EXPECT_THAT(outcome.events, Not(Contains("video0 VIDIOC_STREAMOFF")));
}

// Registered twice, because the interrupt may come during the first call, which then never
// continues.
TEST_F(CtrlC, DuringExitLeavesTheLaserOff) {
  const Outcome outcome = InAChild([] {
    static const auto laser_off = [] {
      static bool interrupted = false;
      if (!std::exchange(interrupted, true)) raise(SIGINT);
      CloseLaser();
    };
    StartUp();
    atexit(+laser_off);
    atexit(+laser_off);
    OpenLaser();
    Report("the laser is on\n");
    exit(0);
  });
  ExpectReleased(outcome);
  EXPECT_THAT(outcome.events, Contains("gpio write gpio907/value 0"));
}

}  // namespace
