// Waits for an interrupt of the board and for an ordinary descriptor at once.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "BoardFixture.h"
#include "support/Waiting.h"

namespace board_test {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tessaline_test::Eventually;
using tessaline_test::ReallyWait;

inline constexpr int kForever = 60'000;  // milliseconds; a test that waits this long has failed
inline constexpr int kRounds = 20;

inline void Interrupt() { tessaline_board_da_arrived(); }

// The number of times the calling thread has gone to sleep.
inline long Sleeps() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

// Its processor time in milliseconds.
inline long Work() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
}

// A wait that nothing ends finds what it missed only at its end, so no test may take long.
class Poll : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    SetRegister(VeltranoSDK::fpga::kReg.IRQ_CTRL, 5);  // both interrupts enabled
    device_ = Descriptor("/dev/uio1", O_RDWR);
    ASSERT_TRUE(device_.IsOpen());
    other_ = eventfd(0, EFD_NONBLOCK);
  }
  void TearDown() override {
    EXPECT_LT(steady_clock::now() - begin_, std::chrono::milliseconds(kForever / 2));
    tessaline_board_clear_faults();
    close(other_);
    BoardTest::TearDown();
  }

  std::array<pollfd, 2> Both() const {
    return {pollfd{device_.Get(), POLLIN, 0}, pollfd{other_, POLLIN, 0}};
  }
  void WakeOther() const { ASSERT_EQ(eventfd_write(other_, 1), 0); }
  void TakeInterrupt() const {
    std::uint32_t count = 0;
    ASSERT_EQ(read(device_.Get(), &count, sizeof count), 4);
    const std::int32_t enable = 1;
    ASSERT_EQ(write(device_.Get(), &enable, sizeof enable), 4);
  }

  const steady_clock::time_point begin_ = steady_clock::now();
  Descriptor device_;
  int other_ = -1;
};

// The shortest time, of some rounds, from an event to the end of a poll that waits for it: on a
// busy machine a thread may be late, but not each time.
template <typename Event, typename Taken>
std::chrono::microseconds Delay(const std::array<pollfd, 2>& descriptors, Event event,
                                Taken taken) {
  auto shortest = std::chrono::microseconds::max();
  for (int round = 0; round < kRounds; ++round) {
    steady_clock::time_point woken;
    std::thread waiting([&] {
      auto set = descriptors;
      EXPECT_EQ(poll(set.data(), set.size(), kForever), 1);
      woken = steady_clock::now();
    });
    ReallyWait(milliseconds(5));
    const auto begin = steady_clock::now();
    event();
    waiting.join();
    taken();
    shortest =
        std::min(shortest, std::chrono::duration_cast<std::chrono::microseconds>(woken - begin));
  }
  return shortest;
}

inline constexpr std::chrono::milliseconds kAtOnce(2);

}  // namespace board_test
