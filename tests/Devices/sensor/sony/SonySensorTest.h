#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <map>
#include <string>

#include "Devices/sensor/SensorTest.h"

namespace VeltranoSDK {

struct SonyBus {
  static std::string Wrote(unsigned address, unsigned value) {
    char text[16];
    snprintf(text, sizeof text, "%04X = %02X", address, value);
    return text;
  }

  static std::string Name(unsigned address) {
    char text[8];
    snprintf(text, sizeof text, "%04X", address);
    return text;
  }

  static std::string AccessOf(const std::string& event) {
    unsigned high = 0;
    unsigned low = 0;
    unsigned value = 0;
    char reads = 0;
    if (event == "i2c-0 I2C_RDWR failed: EIO") return "failed";
    constexpr char kFormat[] = "i2c-0 I2C_RDWR w 0x%*2x %2x %2x%c %x";
    if (sscanf(event.c_str(), kFormat, &high, &low, &reads, &value) < 3) return {};
    const unsigned address = high << 8 | low;
    return reads == ';' ? Name(address) + " ?" : Wrote(address, value);
  }

  static bool IsItsOwnPause(const std::string& event) { return event == "sleep 500"; }
};

// A board with a Sony sensor, and the sensor's programming in its authors' terms: "3000 = 01" for a
// register write, "3012 ?" for a read, "failed" for an access that failed, "TRI_SPACING =
// 0x00000005" for a write to the FPGA, "sleep 100".
class SonySensorTest : public SensorTest<SonyBus> {
 protected:
  using SensorTest::SensorTest;

  static std::string Wrote(unsigned address, unsigned value) {
    return SonyBus::Wrote(address, value);
  }
  static std::string Name(unsigned address) { return SonyBus::Name(address); }

  // The number of tries before an access counts as failed.
  static constexpr unsigned kTries = 10;
  inline static const Lines kFailed = Lines(kTries, "failed");

  // Lets `index` accesses succeed, then fails all tries of the next one.
  static void FailAccess(unsigned index) {
    tessaline_board_clear_faults();
    tessaline_board_fault("i2c-0", "I2C_RDWR", index, kTries, EIO);
  }

  // The index of an access among Accesses(), for FailAccess on the next run.
  static unsigned IndexOf(const std::string& access) {
    const Lines accesses = Accesses();
    const auto found = std::ranges::find(accesses, access);
    EXPECT_NE(found, accesses.end()) << access;
    return static_cast<unsigned>(found - accesses.begin());
  }

  // Repeats an operation once per register write it makes, with that write failing. The operation
  // must print text(register, number of earlier writes to it), return false, do the same as always
  // up to the failure and nothing after it.
  template <typename Operation, typename Text>
  void FailEveryWrite(Operation operation, Text text) {
    PowerUp();
    Printed([&] { ASSERT_TRUE(operation()); });
    const Lines steps = Programming();
    const Lines accesses = Accesses();
    ASSERT_FALSE(accesses.empty());
    std::map<std::string, int> seen;
    Lines expected;  // the steps before the failure
    unsigned access = 0;
    for (const std::string& step : steps) {
      const bool on_the_bus = access < accesses.size() && step == accesses[access];
      if (on_the_bus && !step.ends_with('?')) {
        const std::string name = step.substr(0, 4);
        const std::string told = text(name, seen[name]++);
        PowerUp();
        FailAccess(access);
        bool done = true;
        EXPECT_EQ(Printed([&] { done = operation(); }), told) << "at " << step;
        EXPECT_FALSE(done) << "at " << step;
        EXPECT_EQ(Programming(), expected + kFailed) << "at " << step;
      }
      if (on_the_bus) ++access;
      expected.push_back(step);
    }
    EXPECT_EQ(access, accesses.size());
  }
};

}  // namespace VeltranoSDK
