// A signal handler that uses the board, on a thread interrupted at any place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/videodev2.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "BoardFixture.h"
#include "support/Sanitizers.h"
#include "support/Waiting.h"

namespace board_test {
namespace {

namespace fpga = VeltranoSDK::fpga;
using tessaline_test::Eventually;

constexpr long kPeriodNs = 200'000;
constexpr std::chrono::seconds kLongEnough(2);
constexpr std::uint16_t kSensor = 0x36;

int bus = -1;
int video = -1;
std::atomic<int> handled{0};
std::atomic<bool> failed{false};

void WriteRegister(const fpga::Register& reg, std::uint32_t value) {
  const int memory = open("/dev/mem", O_RDWR);
  void* const block = mmap(nullptr, 255, PROT_READ | PROT_WRITE, MAP_SHARED, memory,
                           fpga::BaseAddress(reg.block, fpga::kZynqRegions));
  if (block == MAP_FAILED) {
    failed = true;
    return;
  }
  auto& word = static_cast<volatile std::uint32_t*>(block)[reg.Index()];
  word = word + value;
  munmap(block, 255);
  close(memory);
}

void StopAll(int) {
  const int error = errno;
  WriteRegister(fpga::kReg.TRIGGER_CTRL, 1);
  std::array<std::uint8_t, 2> address{0x30, 0x0B};
  std::uint8_t value = 0;
  std::array messages{i2c_msg{kSensor, 0, 2, address.data()},
                      i2c_msg{kSensor, I2C_M_RD, 1, &value}};
  i2c_rdwr_ioctl_data request{messages.data(), 2};
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (ioctl(bus, I2C_RDWR, &request) != 2 || ioctl(video, VIDIOC_STREAMOFF, &type) != 0) {
    failed = true;
  }
  ++handled;
  errno = error;
}

// Code in which a thread may be interrupted.
void Allocate(unsigned round) {
  static std::array<void*, 64> kept{};
  void*& slot = kept[round % kept.size()];
  free(slot);
  slot = malloc(round * 2654435761U % 5000);
}

void Print(unsigned round) {
  static FILE* const nowhere = fopen("/dev/null", "w");
  fprintf(nowhere, "%u %f\n", round, round * 0.1);
}

void TellTheTime(unsigned round) {
  const time_t now = round;
  tm local{};
  localtime_r(&now, &local);
}

void AskTheBoard(unsigned) {
  tessaline_board_fault("uio0", "read", 0, 1, EIO);
  free(tessaline_board_transcript(TESSALINE_BOARD_JSON_LINES));
  tessaline_board_transcript_clear();
  tessaline_board_clear_faults();
}

// Exits with 0 after the handler has interrupted it for some time.
void BeInterrupted(void (*round)(unsigned)) {
  struct sigaction action {};
  action.sa_handler = StopAll;
  sigaction(SIGALRM, &action, nullptr);
  // The C library only takes its locks in a process with threads.
  std::thread([] { pause(); }).detach();
  timer_t timer{};
  sigevent event{};
  event.sigev_notify = SIGEV_THREAD_ID;
  event.sigev_signo = SIGALRM;
  event._sigev_un._tid = gettid();
  const itimerspec period{{0, kPeriodNs}, {0, kPeriodNs}};
  if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) _exit(2);
  timer_settime(timer, 0, &period, nullptr);
  const auto end = std::chrono::steady_clock::now() + kLongEnough;
  for (unsigned i = 0; std::chrono::steady_clock::now() < end; ++i) round(i);
  timer_delete(timer);
  _exit(failed || handled == 0 ? 1 : 0);
}

struct Work {
  const char* name;
  void (*round)(unsigned);
};
void PrintTo(const Work& work, std::ostream* out) { *out << work.name; }

class Heap : public BoardTest, public testing::WithParamInterface<Work> {};

TEST_P(Heap, IsNotTheOneThatAHandlerMayHaveInterrupted) {
  if (tessaline_test::kAddressSanitizer || tessaline_test::kThreadSanitizer) {
    GTEST_SKIP() << "built with a sanitizer, the board allocates from the process's heap";
  }
  const pid_t child = fork();
  if (child == 0) {
    bus = open("/dev/i2c-0", O_RDWR);
    video = open("/dev/video1", O_RDWR);
    BeInterrupted(GetParam().round);
  }
  int status = -1;
  const bool ended = Eventually([&] { return waitpid(child, &status, WNOHANG) == child; },
                                std::chrono::seconds(60));
  EXPECT_TRUE(ended) << "it hangs";
  EXPECT_EQ(status, 0);
  if (!ended) kill(child, SIGKILL);
}

INSTANTIATE_TEST_SUITE_P(During, Heap,
                         testing::Values(Work{"Allocations", Allocate}, Work{"Printing", Print},
                                         Work{"TimeConversion", TellTheTime},
                                         Work{"CallsOfTheInterface", AskTheBoard}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace board_test
