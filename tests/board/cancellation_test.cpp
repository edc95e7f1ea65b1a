// Which calls end a thread that was cancelled before the call.
#include <gmock/gmock.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <time.h>

#include <atomic>
#include <cstdio>

#include "BoardFixture.h"

namespace board_test {
namespace {

constexpr const char* kTemperature = "/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw";
constexpr std::uint32_t kRegisters = 0x43C0'0000;

// A call on a descriptor of /dev/uio0, and its results.
struct Call {
  const char* name;
  void (*make)(int fd);
};
void PrintTo(const Call& call, std::ostream* out) { *out << call.name; }

struct Attempt {
  const Call& call;
  int fd;
  int state = PTHREAD_CANCEL_ENABLE;  // the thread's cancel state during the call
  std::atomic<bool> cancelled{false};
  std::atomic<bool> returned{false};
};

// No frame here has a destructor, because the thread may end in the call.
void* MakeTheCall(void* argument) {
  auto* attempt = static_cast<Attempt*>(argument);
  int ignored = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
  while (!attempt->cancelled) sched_yield();
  pthread_setcancelstate(attempt->state, &ignored);
  attempt->call.make(attempt->fd);
  attempt->returned = true;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
  return nullptr;
}

class Cancellation : public BoardTest, public testing::WithParamInterface<Call> {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    device_ = Descriptor("/dev/uio0", O_RDWR | O_NONBLOCK);
    tessaline_board_fault("*", "*", 0, 0, TESSALINE_BOARD_CALLED);
  }
  void TearDown() override {
    tessaline_board_clear_faults();
    BoardTest::TearDown();
  }

  bool Returns(int state) {
    Attempt attempt{GetParam(), device_.Get(), state};
    pthread_t thread{};
    EXPECT_EQ(pthread_create(&thread, nullptr, MakeTheCall, &attempt), 0);
    EXPECT_EQ(pthread_cancel(thread), 0);
    attempt.cancelled = true;
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_NE(attempt.returned, result == PTHREAD_CANCELED);
    return attempt.returned;
  }

  Descriptor device_;
};

using Points = Cancellation;

TEST_P(Points, EndTheThreadBeforeAnythingIsDone) {
  EXPECT_FALSE(Returns(PTHREAD_CANCEL_ENABLE));
  EXPECT_EQ(Transcript(), "");
  EXPECT_EQ(tessaline_board_open_files("uio0"), 1);
  EXPECT_EQ(tessaline_board_open_files("iio"), 0);
}

TEST_P(Points, ReturnWhileCancellationIsOff) { EXPECT_TRUE(Returns(PTHREAD_CANCEL_DISABLE)); }

const timespec kMillisecond{0, 1'000'000};

INSTANTIATE_TEST_SUITE_P(
    All, Points,
    testing::Values(Call{"open", [](int) { open(kTemperature, O_RDONLY); }},
                    Call{"openat", [](int) { openat(AT_FDCWD, kTemperature, O_RDONLY); }},
                    Call{"fopen", [](int) { fopen(kTemperature, "r"); }},
                    Call{"close", [](int fd) { close(fd); }},
                    Call{"read",
                         [](int fd) {
                           std::uint32_t count = 0;
                           EXPECT_EQ(read(fd, &count, sizeof count), -1);
                         }},
                    Call{"write",
                         [](int fd) {
                           const std::uint32_t enable = 1;
                           EXPECT_EQ(write(fd, &enable, sizeof enable), 4);
                         }},
                    Call{"poll",
                         [](int fd) {
                           pollfd set{fd, POLLIN, 0};
                           poll(&set, 1, 0);
                         }},
                    Call{"ppoll",
                         [](int fd) {
                           pollfd set{fd, POLLIN, 0};
                           ppoll(&set, 1, &kMillisecond, nullptr);
                         }},
                    Call{"usleep", [](int) { usleep(1000); }}, Call{"sleep", [](int) { sleep(1); }},
                    Call{"nanosleep", [](int) { nanosleep(&kMillisecond, nullptr); }},
                    Call{"clock_nanosleep",
                         [](int) { clock_nanosleep(CLOCK_MONOTONIC, 0, &kMillisecond, nullptr); }}),
    [](const auto& test) { return std::string(test.param.name); });

using OtherCalls = Cancellation;

TEST_P(OtherCalls, Return) {
  EXPECT_TRUE(Returns(PTHREAD_CANCEL_ENABLE));
  EXPECT_NE(Transcript(), "");
}

INSTANTIATE_TEST_SUITE_P(All, OtherCalls,
                         testing::Values(Call{"ioctl", [](int fd) { EXPECT_EQ(ioctl(fd, 1), -1); }},
                                         Call{"mmap",
                                              [](int fd) {
                                                EXPECT_EQ(
                                                    mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0),
                                                    MAP_FAILED);
                                              }}),
                         [](const auto& test) { return std::string(test.param.name); });

using Elsewhere = BoardTest;

// This holds for every file. munmap does not end a thread, but opening an ordinary file does.
TEST_F(Elsewhere, UnmappingReturnsAndOpeningAnOrdinaryFileEndsTheThread) {
  static void* window;
  const Descriptor memory("/dev/mem", O_RDWR);
  window = mmap(nullptr, 255, PROT_READ, MAP_SHARED, memory.Get(), kRegisters);
  ASSERT_NE(window, MAP_FAILED);
  static std::atomic<bool> unmapped{false};
  pthread_t thread{};
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void*) -> void* {
                  pthread_cancel(pthread_self());
                  unmapped = munmap(window, 255) == 0;
                  open("/dev/null", O_RDONLY);
                  return nullptr;
                },
                nullptr),
            0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  EXPECT_TRUE(unmapped);
  EXPECT_EQ(result, PTHREAD_CANCELED);
}

}  // namespace
}  // namespace board_test
