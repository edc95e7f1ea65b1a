// Laser, LEDs and interrupts of a started ZynqMP product: GPIO lines of the kernel's
// driver for that controller, and UIO devices.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <vector>

#include "support/Files.h"
#include "support/Measured.h"
#include "support/Started.h"

namespace {

using namespace kernel_test;
using Clock = std::chrono::steady_clock;

// The controller's registers: the latest value of a line is written, with a mask, to the
// half of the data word that it stands in.
class GpioController {
 public:
  static constexpr unsigned kFirstLine = 338;

  GpioController() {
    const int fd = open("/dev/mem", O_RDWR | O_SYNC);
    registers_ = static_cast<volatile std::uint32_t*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0xFF0A0000));
    close(fd);
  }
  bool IsThere() const { return registers_ != MAP_FAILED; }

  bool IsHigh(unsigned line) const {
    const Place place = Find(line);
    return (registers_[place.bank * 2 + place.bit / 16] >> place.bit % 16 & 1) != 0;
  }
  bool IsOutput(unsigned line) const {
    const Place place = Find(line);
    return (registers_[(0x204 + 0x40 * place.bank) / 4] >> place.bit & 1) != 0;
  }

 private:
  struct Place {
    unsigned bank, bit;
  };
  static Place Find(unsigned line) {
    constexpr unsigned kFirst[] = {0, 26, 52, 78, 110, 142};
    const unsigned number = line - kFirstLine;
    unsigned bank = 5;
    while (kFirst[bank] > number) --bank;
    return {bank, number - kFirst[bank]};
  }

  volatile std::uint32_t* registers_;
};

class Started : public ::testing::Test {
 protected:
  Started() : fed_(kK4010) {
    log_set_quiet(true);
    GetLibVersion("K4010");
    EXPECT_EQ(RegisterHardwareInit(), 0);
  }

  Frames fed_;
};

constexpr unsigned kLaser1 = 363, kLaser2 = 364, kRed = 417, kGreen = 416, kBlue = 418;

TEST_F(Started, TheLaserIsSwitchedByTwoLines) {
  const GpioController gpio;
  ASSERT_TRUE(gpio.IsThere());
  EXPECT_EQ(OpenLaser(), 0);
  for (const unsigned line : {kLaser1, kLaser2}) {
    EXPECT_EQ(ReadLine("/sys/class/gpio/gpio" + std::to_string(line) + "/direction"), "out");
    EXPECT_TRUE(gpio.IsOutput(line)) << line;
    EXPECT_TRUE(gpio.IsHigh(line)) << line;
  }
  EXPECT_EQ(ReadLine("/sys/module/board_line/parameters/level"), "1");  // the laser's LED
  EXPECT_EQ(CloseLaser(), 0);
  EXPECT_FALSE(gpio.IsHigh(kLaser1));
  EXPECT_FALSE(gpio.IsHigh(kLaser2));
  EXPECT_EQ(ReadLine("/sys/module/board_line/parameters/level"), "0");
}

TEST_F(Started, TheStatusLightHasThreeLines) {
  const GpioController gpio;
  ASSERT_TRUE(gpio.IsThere());
  for (unsigned colour = 8; colour-- > 0;) {
    EXPECT_EQ(LedControl(colour), 0);
    EXPECT_EQ(gpio.IsHigh(kRed), (colour & 1) != 0) << colour;
    EXPECT_EQ(gpio.IsHigh(kGreen), (colour & 2) != 0) << colour;
    EXPECT_EQ(gpio.IsHigh(kBlue), (colour & 4) != 0) << colour;
  }
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

// Every one is told, one after the other; returns how long that took.
std::vector<double> Fire(const char* number, std::atomic<unsigned>& count,
                         std::atomic<Clock::time_point>& last) {
  constexpr unsigned kTimes = 200;
  std::vector<double> microseconds;
  for (unsigned i = 1; i <= kTimes; ++i) {
    const unsigned before = count;
    const auto start = Clock::now();
    EXPECT_TRUE(WriteFile("/sys/module/board_uio/parameters/raise", number));
    if (!Eventually([&] { return count == before + 1; })) {
      ADD_FAILURE() << "interrupt " << i << " was not told";
      break;
    }
    microseconds.push_back(
        std::chrono::duration<double, std::micro>(last.load() - start).count());
    // The handler has returned, the thread has yet to unmask the interrupt.
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
  EXPECT_EQ(pulses, 200u);
  EXPECT_EQ(arrivals, 200u);
  ASSERT_EQ(SetExtTriggerState(0), 0);
  ASSERT_EQ(SetDADelayState(0), 0);
}

TEST_F(Started, NotifiersBlockedInAReadAreSwitchedOffAHundredTimes) {
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER,
                       reinterpret_cast<tessaline_event_handler>(OnPulse));
  double longest = 0;
  for (unsigned i = 0; i < 100; ++i) {
    ASSERT_EQ(SetExtTriggerState(1), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const auto start = Clock::now();
    ASSERT_EQ(SetExtTriggerState(0), 0);
    longest = std::max(longest, std::chrono::duration<double>(Clock::now() - start).count());
  }
  Measured("switching a blocked notifier off, longest of 100", longest * 1000, "ms");
  EXPECT_LT(longest, 1.0);
  // None of the threads is left to take what belongs to the next one.
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
  EXPECT_EQ(ReadFile("/sys/kernel/debug/board_i2c/positions").substr(0, 3), std::string("\x3E\0\0", 3));
  EXPECT_EQ(SetLaserPower(0), 0);
  EXPECT_EQ(ReadFile("/sys/kernel/debug/board_i2c/positions").substr(0, 3),
            std::string("\x3E\0\x7F", 3));
}

}  // namespace
