// A process that forks while its other threads use the board.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "BoardFixture.h"
#include "support/Waiting.h"

namespace board_test {
namespace {

using tessaline_test::Eventually;

constexpr int kForks = 300;

// Takes as many of the board's locks as a few calls can.
bool UseTheBoard() {
  const Descriptor bus("/dev/i2c-0", O_RDWR);
  return bus.IsOpen() && WriteFile("/sys/class/gpio/export", "907") == -EBUSY;
}

using Fork = BoardTest;

TEST_F(Fork, TheChildFindsNothingLocked) {
  ASSERT_EQ(WriteFile("/sys/class/gpio/export", "907"), 3);
  std::atomic<bool> enough{false};
  std::vector<std::thread> busy;
  for (int i = 0; i < 3; ++i) {
    busy.emplace_back([&enough] {
      while (!enough) EXPECT_TRUE(UseTheBoard());
    });
  }
  for (int i = 0; i < kForks && !HasFailure(); ++i) {
    const pid_t child = fork();
    if (child == 0) _exit(UseTheBoard() ? 0 : 1);
    int status = 0;
    const bool ended = Eventually([&] { return waitpid(child, &status, WNOHANG) == child; });
    EXPECT_TRUE(ended && status == 0) << "fork " << i;
    // The child may have its signals blocked.
    if (!ended) kill(child, SIGKILL);
    tessaline_board_transcript_clear();
  }
  enough = true;
  for (std::thread& thread : busy) thread.join();
}

std::atomic<int> handled{0};

TEST_F(Fork, AHandlerThatInterruptsItMayUseTheBoard) {
  ASSERT_EQ(WriteFile("/sys/class/gpio/export", "907"), 3);
  struct sigaction action {};
  action.sa_handler = [](int) {
    const int error = errno;
    handled += UseTheBoard() ? 1 : 0;
    errno = error;
  };
  action.sa_flags = SA_RESTART;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  std::atomic<bool> enough{false};
  std::thread forks([&enough] {
    for (int i = 0; i < kForks; ++i) {
      const pid_t child = fork();
      if (child == 0) _exit(0);
      waitpid(child, nullptr, 0);
    }
    enough = true;
  });
  while (!enough) {
    pthread_kill(forks.native_handle(), SIGUSR1);
    tessaline_test::ReallyWait(std::chrono::milliseconds(1));
  }
  forks.join();
  EXPECT_GT(handled, 0);
  tessaline_board_transcript_clear();
}

}  // namespace
}  // namespace board_test
