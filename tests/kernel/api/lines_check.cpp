// Laser, LEDs, interrupts and laser power of a started product, on GPIO lines, UIO devices and a
// chip on the I2C bus.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <vector>

#include "support/Files.h"
#include "support/Measured.h"
#include "support/Silence.h"
#include "support/Started.h"

namespace {

using namespace kernel_test;
using Clock = std::chrono::steady_clock;

// The level that the controller drives: '1', '0', or 'i' for an input.
char Level(unsigned line) {
  constexpr unsigned kFirst = 338;
  const std::string lines = "/sys/kernel/debug/board_gpio/";
  if (line == 0) return ReadFile(lines + "from0").at(0);
  return ReadFile(lines + "from338").at(line - kFirst);
}

// Starts the product with capture devices that deliver nothing.
void StartInSilence(const char* model) {
  log_set_quiet(true);
  PutOnSpiBus1(model);
  for (const unsigned number : {0u, 1u}) LoopedVideo::LosePercent(number, 100);
  GetLibVersion(model);
  ASSERT_EQ(RegisterHardwareInit(), 0);
}

class Started : public ::testing::Test {
 protected:
  Started() { StartInSilence("K3920"); }
};

constexpr unsigned kLaser1 = 363, kLaser2 = 364, kRed = 417, kGreen = 416, kBlue = 418;

// Uses the lines of a ZynqMP board. The numbers of the other boards are out of this kernel's range.
TEST(Lines, LaserAndLedsAreDriven) {
  StartInSilence("K4010");
  const std::string lines = "/sys/class/gpio/gpio";
  EXPECT_EQ(Level(0), '0') << "the laser's LED";
  EXPECT_EQ(OpenLaser(), 0);
  for (const unsigned line : {kLaser1, kLaser2}) {
    EXPECT_EQ(ReadLine(lines + std::to_string(line) + "/direction"), "out");
    EXPECT_EQ(ReadLine(lines + std::to_string(line) + "/value"), "1");
    EXPECT_EQ(Level(line), '1');
  }
  EXPECT_EQ(CloseLaser(), 0);
  EXPECT_EQ(Level(kLaser1), '0');
  EXPECT_EQ(Level(kLaser2), '0');
  for (unsigned colour = 8; colour-- > 0;) {
    EXPECT_EQ(LedControl(colour), 0);
    EXPECT_EQ(Level(kRed), colour & 1 ? '1' : '0') << colour;
    EXPECT_EQ(Level(kGreen), colour & 2 ? '1' : '0') << colour;
    EXPECT_EQ(Level(kBlue), colour & 4 ? '1' : '0') << colour;
  }
}

// The lines of other boards cannot be exported here. The library reports this and fails.
TEST(Lines, NumbersTheKernelDoesNotHaveAreAFailure) {
  StartInSilence("K3920");
  EXPECT_EQ(OpenLaser(), -1);
  EXPECT_EQ(LedControl(7), -1);
}

std::atomic<unsigned> pulses, arrivals;
std::atomic<Clock::time_point> last_pulse, last_arrival;

void OnPulse(unsigned) {
  last_pulse = Clock::now();
  ++pulses;
}
void OnArrival() {
  last_arrival = Clock::now();
  ++arrivals;
}

// Raises interrupts one after another and checks that each is reported. Returns the times taken.
std::vector<double> Fire(const char* number, std::atomic<unsigned>& count,
                         std::atomic<Clock::time_point>& last) {
  constexpr unsigned kTimes = 100;
  std::vector<double> microseconds;
  for (unsigned i = 1; i <= kTimes; ++i) {
    const unsigned before = count;
    const auto start = Clock::now();
    EXPECT_TRUE(WriteFile("/sys/module/board_uio/parameters/raise", number));
    if (!Eventually([&] { return count == before + 1; })) {
      ADD_FAILURE() << "interrupt " << i << " was not told";
      break;
    }
    microseconds.push_back(std::chrono::duration<double, std::micro>(last.load() - start).count());
    // The handler has returned, but the thread may not have unmasked the interrupt yet.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(count, before + 1) << "told twice";
  }
  std::ranges::sort(microseconds);
  return microseconds;
}

void Report(const std::string& what, const std::vector<double>& sorted) {
  ASSERT_FALSE(sorted.empty());
  Measured(what + ", median of " + std::to_string(sorted.size()), sorted[sorted.size() / 2], "us");
  Measured(what + ", longest", sorted.back(), "us");
}

TEST_F(Started, EveryInterruptIsToldOnce) {
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER,
                       reinterpret_cast<tessaline_event_handler>(OnPulse));
  RegisterEventHandler(TESSALINE_EVENT_DA_ARRIVED, OnArrival);
  ASSERT_EQ(SetExtTriggerState(1), 0);
  ASSERT_EQ(SetDADelayState(1), 0);
  Report("external trigger to handler", Fire("0", pulses, last_pulse));
  Report("DA arrived to handler", Fire("1", arrivals, last_arrival));
  EXPECT_EQ(pulses, 100u);
  EXPECT_EQ(arrivals, 100u);
  ASSERT_EQ(SetExtTriggerState(0), 0);
  ASSERT_EQ(SetDADelayState(0), 0);
}

TEST_F(Started, NotifiersThatWaitAreSwitchedOffAHundredTimes) {
  constexpr int kCaptureThreads = 2;
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER,
                       reinterpret_cast<tessaline_event_handler>(OnPulse));
  std::vector<double> seconds;
  for (unsigned i = 0; i < 100; ++i) {
    ASSERT_EQ(SetExtTriggerState(1), 0);
    ASSERT_TRUE(Eventually([] { return ThreadsWaitInPoll(getpid(), kCaptureThreads + 1); }));
    const auto start = Clock::now();
    ASSERT_EQ(SetExtTriggerState(0), 0);
    seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
  }
  ExpectEachWithinASecond("switching a notifier that waits off", seconds);
  // No old thread is left that could take an interrupt of the next one.
  ASSERT_EQ(SetExtTriggerState(1), 0);
  WriteFile("/sys/module/board_uio/parameters/raise", "0");
  EXPECT_TRUE(Eventually([] { return pulses == 1; }));
  ASSERT_EQ(SetExtTriggerState(0), 0);
  WriteFile("/sys/module/board_uio/parameters/raise", "0");
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(pulses, 1u);
}

TEST_F(Started, LaserPowerReachesTheChip) {
  EXPECT_EQ(SetLaserPower(100), 0);
  EXPECT_EQ(ReadFile("/sys/kernel/debug/board_i2c/positions").substr(0, 3),
            std::string("\x3E\0\0", 3));
  EXPECT_EQ(SetLaserPower(0), 0);
  EXPECT_EQ(ReadFile("/sys/kernel/debug/board_i2c/positions").substr(0, 3),
            std::string("\x3E\0\x7F", 3));
}

}  // namespace
