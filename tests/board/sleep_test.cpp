// Sleeps that are scaled, and sleeps that a signal interrupts.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <climits>

#include "BoardFixture.h"

namespace board_test {
namespace {

namespace fpga = VeltranoSDK::fpga;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// The extra time that a busy machine may need.
constexpr milliseconds kPatience(300);

std::atomic<int> handled{0};
void OnAlarm(int) { ++handled; }

nanoseconds Length(const timespec& time) {
  return seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

timespec Timespec(nanoseconds time) {
  const auto whole = duration_cast<seconds>(time);
  return {whole.count(), (time - whole).count()};
}

std::uint32_t Register(const fpga::Register& reg) {
  return tessaline_board_register_get(static_cast<unsigned>(reg.block), reg.offset);
}

nanoseconds BoardTime() {
  const std::uint64_t low = Register(fpga::kReg.TIMER_COUNTER_L);
  const std::uint64_t high = Register(fpga::kReg.TIMER_COUNTER_H);
  return nanoseconds((high << 32 | low) * fpga::kNanosecondsPerTick);
}

// Sends signals in real time: the first after the given time, and then repeatedly.
class Alarm {
 public:
  explicit Alarm(milliseconds period) {
    struct sigaction action {};
    action.sa_handler = OnAlarm;
    sigaction(SIGALRM, &action, &before_);
    handled = 0;
    Set(period);
  }
  ~Alarm() {
    Set(milliseconds(0));
    sigaction(SIGALRM, &before_, nullptr);
  }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

 private:
  static void Set(milliseconds period) {
    const timeval interval{period.count() / 1000, period.count() % 1000 * 1000};
    const itimerval timer{interval, interval};
    setitimer(ITIMER_REAL, &timer, nullptr);
  }
  struct sigaction before_ {};
};

class Sleep : public BoardTest {
 protected:
  // Measures how much board time and real time pass during the call.
  template <typename Call>
  void Measure(Call call) {
    const nanoseconds board = BoardTime();
    const auto begin = steady_clock::now();
    call();
    real_ = steady_clock::now() - begin;
    on_board_ = BoardTime() - board;
  }

  nanoseconds real_{};
  nanoseconds on_board_{};
};

// The time must not be less, and not much more.
void ExpectAbout(nanoseconds time, nanoseconds expected) {
  EXPECT_GE(time.count(), (expected - milliseconds(1)).count());
  EXPECT_LE(time.count(), (expected + kPatience).count());
}

TEST_F(Sleep, TakesItsPartOfRealTimeAndAllOfTheBoards) {
  tessaline_board_set_sleep_factor(0.1);
  Measure([] { EXPECT_EQ(usleep(900'000), 0); });
  ExpectAbout(real_, milliseconds(90));
  ExpectAbout(on_board_, milliseconds(900));
  tessaline_board_set_sleep_factor(2);
  Measure([] { EXPECT_EQ(usleep(50'000), 0); });
  ExpectAbout(real_, milliseconds(100));
  ExpectAbout(on_board_, milliseconds(100));
}

TEST_F(Sleep, ThatIsCutShortLeavesWhatIsMissingOfTheLengthAskedFor) {
  for (const double factor : {0.1, 1.0, 2.0}) {
    SCOPED_TRACE(factor);
    tessaline_board_set_sleep_factor(factor);
    const timespec asked = Timespec(seconds(20));
    timespec left{};
    const Alarm alarm(milliseconds(100));
    Measure([&] {
      EXPECT_EQ(nanosleep(&asked, &left), -1);
      EXPECT_EQ(errno, EINTR);
    });
    EXPECT_GE(handled, 1);
    ExpectAbout(real_, milliseconds(100));
    const nanoseconds slept = seconds(20) - Length(left);
    EXPECT_NEAR(static_cast<double>(slept.count()) * factor, static_cast<double>(real_.count()),
                static_cast<double>(nanoseconds(kPatience).count()) / 3);
    ExpectAbout(on_board_, std::max(slept, real_ - kPatience / 3));
  }
}

TEST_F(Sleep, ThatGoesOnWithWhatIsLeftLastsAsLong) {
  tessaline_board_set_sleep_factor(0.2);
  const Alarm alarm(milliseconds(7));
  timespec left = Timespec(milliseconds(1000));
  Measure([&] {
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) continue;
  });
  EXPECT_GE(handled, 5);
  ExpectAbout(real_, milliseconds(200));
  ExpectAbout(on_board_, milliseconds(1000));
}

TEST_F(Sleep, ThatIsSkippedLeavesNothing) {
  const Alarm alarm(milliseconds(1));
  const timespec asked = Timespec(milliseconds(10));
  timespec left{};
  int sleeps = 0;
  Measure([&] {
    for (; handled < 50; ++sleeps) ASSERT_EQ(nanosleep(&asked, &left), 0);
  });
  EXPECT_EQ(left.tv_sec, 0);
  EXPECT_EQ(left.tv_nsec, 0);
  ExpectAbout(on_board_, sleeps * milliseconds(10) + real_ - kPatience / 2);
}

TEST_F(Sleep, SaysHowManyOfItsSecondsAreLeft) {
  tessaline_board_set_sleep_factor(0.1);
  const Alarm alarm(milliseconds(250));
  EXPECT_NEAR(sleep(20), 17, 2);
  EXPECT_GE(handled, 1);
}

TEST_F(Sleep, OfAClockReturnsItsErrorAndLeavesErrnoAlone) {
  tessaline_board_set_sleep_factor(1);
  const timespec asked = Timespec(seconds(20));
  const timespec wrong{0, 1'000'000'000};
  const timespec none{0, 0};
  errno = E2BIG;
  {
    const Alarm alarm(milliseconds(10));
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &asked, nullptr), EINTR);
  }
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &wrong, nullptr), EINVAL);
  EXPECT_EQ(clock_nanosleep(9999, 0, &none, nullptr), EINVAL);
  EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &none, nullptr), 0);
  EXPECT_EQ(errno, E2BIG);
  EXPECT_EQ(nanosleep(&wrong, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Sleep, ForEverIsNoNumberTooLarge) {
  tessaline_board_set_sleep_factor(3);
  const timespec ages{LONG_MAX, 0};
  timespec left{};
  const Alarm alarm(milliseconds(10));
  EXPECT_EQ(nanosleep(&ages, &left), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_GT(left.tv_sec, 1'000'000'000);
}

}  // namespace
}  // namespace board_test
