// A signal handler that uses the board, on a thread that constantly uses it.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string_view>

#include "support/BoardFixture.h"

namespace {

constexpr const char* kExport = "/sys/class/gpio/export";
constexpr int kEnough = 3000;
constexpr itimerspec kOnce{{0, 0}, {0, 100'000}};
constexpr std::string_view kLine = "907";

std::atomic<int> handled = 0;
std::atomic<int> failed = 0;
timer_t timer;

// Takes as many of the board's locks as a few calls can.
void UseTheBoard() {
  const int fd = open(kExport, O_WRONLY);
  // The line is already exported, so the board rejects the write and records it.
  if (fd < 0 || write(fd, kLine.data(), kLine.size()) >= 0) ++failed;
  if (fd >= 0) close(fd);
  usleep(1);
}

// Restarts the timer after its work. With a periodic timer, a slow machine would do nothing but
// handle signals.
void OnSignal(int) {
  const int error = errno;
  UseTheBoard();
  ++handled;
  timer_settime(timer, 0, &kOnce, nullptr);
  errno = error;
}

class Signals : public tessaline_test::BoardFixture {
 protected:
  Signals() : BoardFixture("K3610") {}
};

TEST_F(Signals, NeverMeetTheBoardInTheMiddleOfACall) {
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_RESTART;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const int fd = open(kExport, O_WRONLY);
  ASSERT_EQ(write(fd, kLine.data(), kLine.size()), static_cast<ssize_t>(kLine.size()));
  close(fd);

  // A timer interrupts at any instruction. Another thread would mostly interrupt this one where it
  // yields.
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGUSR1;
  ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
  ASSERT_EQ(timer_settime(timer, 0, &kOnce, nullptr), 0);
  // On a busy machine every pause costs milliseconds, so the rounds that fit in this time are
  // enough.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (handled < kEnough && std::chrono::steady_clock::now() < end) UseTheBoard();
  timer_delete(timer);
  EXPECT_EQ(failed, 0);
  EXPECT_GT(handled, 0);
}

}  // namespace
