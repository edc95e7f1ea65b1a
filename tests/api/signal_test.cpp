// The effect of SIGINT on the process and on the devices. Each case starts the device in its own
// process and interrupts that process.
#include <dlfcn.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "api/InterruptedChild.h"
#include "support/BoardFixture.h"
#include "support/CalledByLibrary.h"
#include "support/Sanitizers.h"
#include "support/Waiting.h"
#include "tessaline/board.h"
#include "tessaline/signal_handler.h"
#include "tessaline/tessaline.h"

namespace {

using std::chrono::milliseconds;
using tessaline_test::Eventually;
using tessaline_test::ExpectExit;
using tessaline_test::InAChild;
using tessaline_test::kHandlerReachesTheBoard;
using tessaline_test::kSanitizerBlocksSigsegvInHandlers;
using tessaline_test::Outcome;
using tessaline_test::PlugIn;
using tessaline_test::ReallyWait;
using tessaline_test::Report;
using tessaline_test::report_pipe;
using tessaline_test::StartUp;
using tessaline_test::Wrote;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

namespace fpga = VeltranoSDK::fpga;

int image_wake_up = -1;
int strip_wake_up = -1;
std::atomic<bool> in_handler = false;
const volatile char* image_pixels = nullptr;
void (*during_image)() = [] {};

void OnImage(unsigned, unsigned, void* pixels) {
  image_pixels = static_cast<char*>(pixels);
  in_handler = true;
  during_image();
}

// Triggers an image and waits until the handler is called with it.
void HandleAnImage() {
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  SetTriMode(2);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  Eventually([] { return in_handler.load(); });
}

class HandledSigint : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kHandlerReachesTheBoard) GTEST_SKIP() << kSanitizerBlocksSigsegvInHandlers;
  }
};

TEST_F(HandledSigint, EndsTheProcessWithStatusZero) {
  ExpectExit(InAChild([] {
               StartUp();
               kill(getpid(), SIGINT);
               pause();
             }),
             0);
}

TEST_F(HandledSigint, StopsTheFpgaThenReleasesImagesThenStrips) {
  const Outcome outcome = InAChild([] {
    StartUp();
    kill(getpid(), SIGINT);
    pause();
  });
  const auto& events = outcome.events;
  const auto at = [&](const std::string& line) {
    const auto found = std::find(events.begin(), events.end(), line);
    EXPECT_NE(found, events.end()) << line;
    return found - events.begin();
  };
  const auto master = at("fpga " + Wrote(fpga::kReg.MASTER_CTRL, 0));
  const auto trigger = at("fpga " + Wrote(fpga::kReg.TRIGGER_CTRL, 0));
  const auto images = at("video0 VIDIOC_STREAMOFF");
  const auto strips = at("video1 VIDIOC_STREAMOFF");
  EXPECT_LT(master, trigger);
  EXPECT_LT(trigger, images);
  EXPECT_LT(images, strips);
}

TEST_F(HandledSigint, AsksTheImageThreadToEndAndThenTheStripThread) {
  const Outcome outcome = InAChild([] {
    StartUp();
    kill(getpid(), SIGINT);
    pause();
  });
  ExpectExit(outcome, 0);
  std::vector<std::string> asked;
  std::copy_if(outcome.events.begin(), outcome.events.end(), std::back_inserter(asked),
               [](const std::string& line) { return line.starts_with("asked "); });
  EXPECT_THAT(asked, ElementsAre("asked images", "asked strips"));
}

TEST_F(HandledSigint, LetsAHandlerFinishFirst) {
  const Outcome outcome = InAChild([] {
    StartUp();
    during_image = [] {
      ReallyWait(milliseconds(300));
      usleep(777);
    };
    HandleAnImage();
    kill(getpid(), SIGINT);
    pause();
  });
  ExpectExit(outcome, 0);
  const auto& events = outcome.events;
  const auto finished = std::find(events.begin(), events.end(), tessaline_test::Slept(777));
  ASSERT_NE(finished, events.end());
  EXPECT_NE(std::find(finished, events.end(), "video0 VIDIOC_STREAMOFF"), events.end());
}

// The handler's image stays readable to the end of the process.
TEST_F(HandledSigint, LeavesTheBufferToAHandlerThatStays) {
  const Outcome outcome = InAChild([] {
    StartUp();
    log_add_callback(tessaline_test::ReportError, nullptr, TESSALINE_LOG_ERROR);
    atexit([] { ReallyWait(milliseconds(50)); });
    during_image = [] {
      for (;;) {
        [[maybe_unused]] const volatile char pixel = *image_pixels;
        ReallyWait(milliseconds(1));
      }
    };
    HandleAnImage();
    kill(getpid(), SIGINT);
    pause();
  });
  ExpectExit(outcome, 0);
  EXPECT_THAT(outcome.events,
              Contains("error the image thread is still at work, its buffers stay mapped"));
  EXPECT_THAT(outcome.events, Contains("video1 VIDIOC_STREAMOFF"));
}

// The second signal comes while the first is being handled. It goes to the thread that handles the
// first, or to another thread of the application.
void InterruptTwice(bool another_thread) {
  const Outcome outcome = InAChild([another_thread] {
    StartUp();
    static pthread_t second;
    second = pthread_self();
    if (another_thread) {
      std::thread idle([] {
        for (;;) pause();
      });
      second = idle.native_handle();
      idle.detach();
    }
    during_image = [] {
      ReallyWait(milliseconds(100));
      pthread_kill(second, SIGINT);
      ReallyWait(milliseconds(100));
    };
    HandleAnImage();
    pthread_kill(pthread_self(), SIGINT);
    pause();
  });
  ExpectExit(outcome, 0);
  const std::string stop = "fpga " + Wrote(fpga::kReg.MASTER_CTRL, 0);
  for (const char* event : {stop.c_str(), "video0 VIDIOC_STREAMOFF", "video1 VIDIOC_STREAMOFF"}) {
    EXPECT_EQ(std::count(outcome.events.begin(), outcome.events.end(), event), 1) << event;
  }
}

TEST_F(HandledSigint, EndsTheProcessOnceWhenItComesTwice) { InterruptTwice(false); }

TEST_F(HandledSigint, EndsTheProcessOnceWhenItComesToTwoThreads) { InterruptTwice(true); }

// Register accesses wait for ever after the registers could not be opened.
TEST_F(HandledSigint, EndsTheProcessWhoseRegistersAreOutOfReach) {
  ExpectExit(InAChild([] {
               StartUp();
               tessaline_board_fault("fpga", "open", 0, 1, EACCES);
               std::thread([] {
                 ReallyWait(milliseconds(50));
                 kill(getpid(), SIGINT);
               }).detach();
               SetTriMode(1);
             }),
             0);
}

TEST_F(HandledSigint, EndsTheProcessThatLosesItsRegistersInTheEnding) {
  const Outcome outcome = InAChild([] {
    StartUp();
    tessaline_board_fault("fpga", "open", 0, 1, EMFILE);
    raise(SIGINT);
  });
  ExpectExit(outcome, 0);
  EXPECT_THAT(outcome.events, Contains("video1 VIDIOC_STREAMOFF"));
  EXPECT_THAT(outcome.events, Not(Contains("fpga " + Wrote(fpga::kReg.TRIGGER_CTRL, 0))));
}

// Handlers that need a lock held by the interrupted thread never return.
TEST_F(HandledSigint, EndsTheProcessWhoseHandlersWaitForTheInterruptedThread) {
  const Outcome outcome = InAChild([] {
    static std::mutex application;
    static std::atomic<bool> strips_wait;
    StartUp();
    tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
    tessaline_board_set_strips_per_buffer(1);
    during_image = [] { const std::lock_guard lock(application); };
    RegisterEventHandler(TESSALINE_EVENT_STRIP,
                         reinterpret_cast<tessaline_event_handler>(+[](unsigned, unsigned, void*) {
                           strips_wait = true;
                           const std::lock_guard lock(application);
                         }));
    application.lock();
    HandleAnImage();
    SetCollectMode(0);
    SetTriMode(0);
    Eventually([] { return strips_wait.load(); });
    raise(SIGINT);
  });
  ExpectExit(outcome, 0);
  EXPECT_THAT(outcome.events, Contains("video0 VIDIOC_STREAMOFF"));
  EXPECT_THAT(outcome.events, Contains("video1 VIDIOC_STREAMOFF"));
}

// One stream's handler does not return, but the other stream's thread has time to end.
TEST_F(HandledSigint, ReleasesTheStripsThoughAnImagesHandlerStays) {
  const Outcome outcome = InAChild([] {
    StartUp();
    log_add_callback(tessaline_test::ReportError, nullptr, TESSALINE_LOG_ERROR);
    during_image = [] {
      for (;;) pause();
    };
    HandleAnImage();
    raise(SIGINT);
  });
  ExpectExit(outcome, 0);
  EXPECT_THAT(outcome.events,
              Contains("error the image thread is still at work, its buffers stay mapped"));
  EXPECT_THAT(outcome.events,
              Not(Contains("error the strip thread is still at work, its buffers stay mapped")));
}

TEST_F(HandledSigint, EndsTheProcessThatReplacesAHandlerInProgress) {
  const Outcome outcome = InAChild([] {
    StartUp();
    during_image = [] {
      ReallyWait(milliseconds(50));
      kill(getpid(), SIGINT);
      for (;;) pause();
    };
    HandleAnImage();
    RegisterEventHandler(TESSALINE_EVENT_IMAGE, nullptr);
  });
  ExpectExit(outcome, 0);
  EXPECT_THAT(outcome.events, Contains("video1 VIDIOC_STREAMOFF"));
}

TEST_F(HandledSigint, EndsTheProcessWhileFramesArrive) {
  ExpectExit(InAChild([] {
               StartUp();
               tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
               RegisterEventHandler(
                   TESSALINE_EVENT_STRIP,
                   reinterpret_cast<tessaline_event_handler>(+[](unsigned, unsigned, void*) {}));
               SetCollectMode(0);
               SetTriMode(0);
               SetGlobalControl(1);
               ReallyWait(milliseconds(100));
               kill(getpid(), SIGINT);
               pause();
             }),
             0);
}

// The handler takes the locks of the interrupted code.
TEST_F(HandledSigint, EndsTheProcessInTheMiddleOfRegisterAccesses) {
  for (int round = 0; round < 10; ++round) {
    ExpectExit(InAChild([round] {
                 StartUp();
                 std::thread([round] {
                   ReallyWait(milliseconds(5 + round));
                   kill(getpid(), SIGINT);
                 }).detach();
                 for (unsigned int i = 0;; ++i) SetTriSpacing(i);
               }),
               0);
  }
}

TEST(Sigint, HasItsDefaultActionBeforeStartUp) {
  const Outcome outcome = InAChild([] {
    PlugIn();
    kill(getpid(), SIGINT);
    pause();
  });
  ASSERT_TRUE(WIFSIGNALED(outcome.status));
  EXPECT_EQ(WTERMSIG(outcome.status), SIGINT);
}

TEST(Sigint, IsHandledWithSigquitBlockedAndNoFlags) {
  ExpectExit(InAChild([] {
               StartUp();
               struct sigaction action {};
               sigaction(SIGINT, nullptr, &action);
               constexpr int kRestorer = 0x04000000;  // set by the C library itself
               const bool as_installed = sigismember(&action.sa_mask, SIGQUIT) == 1 &&
                                         sigismember(&action.sa_mask, SIGTERM) == 0 &&
                                         sigismember(&action.sa_mask, SIGINT) == 0 &&
                                         (action.sa_flags & ~kRestorer) == 0;
               _exit(as_installed ? 7 : 8);
             }),
             7);
}

TEST(Sigint, PassesWithoutEffectOnceTheIdleHandlerIsInstalled) {
  ExpectExit(InAChild([] {
               StartUp();
               if (VeltranoSDK::SignalHandler::install() != 0) _exit(98);
               kill(getpid(), SIGINT);
               _exit(SetTriMode(1) == 0 ? 7 : 8);
             }),
             7);
}

}  // namespace

// These replace the C library's functions for the whole program and identify the threads: the image
// thread gets its wake-up first, then the strip thread.
extern "C" int eventfd(unsigned int count, int flags)
#if defined(__GLIBC__)
    __THROW
#endif
{
  static const auto real =
      reinterpret_cast<int (*)(unsigned int, int)>(dlsym(RTLD_NEXT, "eventfd"));
  const int fd = real(count, flags);
  if (!tessaline_test::CalledByLibrary(__builtin_return_address(0))) return fd;
  if (image_wake_up < 0) {
    image_wake_up = fd;
  } else if (strip_wake_up < 0) {
    strip_wake_up = fd;
  }
  return fd;
}

extern "C" int eventfd_write(int fd, eventfd_t value) {
  static const auto real =
      reinterpret_cast<int (*)(int, eventfd_t)>(dlsym(RTLD_NEXT, "eventfd_write"));
  if (report_pipe >= 0 && fd == image_wake_up) Report("asked images\n");
  if (report_pipe >= 0 && fd == strip_wake_up) Report("asked strips\n");
  return real(fd, value);
}
