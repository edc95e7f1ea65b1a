// The temperature channel and the watchdog.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/watchdog.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "Devices/peripheral/WatchdogTimer.h"
#include "Devices/peripheral/ZynqTemp.h"
#include "Devices/peripheral/ZynqmpTemp.h"
#include "Runnable/WatchDogThread.h"
#include "support/Files.h"
#include "tessaline/log.h"

namespace {

using namespace kernel_test;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)

class Temperature : public ::testing::Test {
 protected:
  Temperature() { log_set_quiet(true); }
  ~Temperature() override { EXPECT_EQ(std::system("rmmod board_adc"), 0); }
  static void Load(const char* parameters) {
    ASSERT_EQ(std::system((std::string("modprobe board_adc ") + parameters).c_str()), 0);
  }
};

TEST_F(Temperature, Zynq) {
  Load("zynqmp=0 raw=2500");
  EXPECT_NEAR(ZynqTemp().GetTemp(), 34.4519, 0.001);
  WriteFile("/sys/module/board_adc/parameters/raw", "2600");
  EXPECT_NEAR(ZynqTemp().GetTemp(), 2600 * 503.975 / 4096 - 273.15, 0.001);
}

TEST_F(Temperature, ZynqMp) {
  Load("zynqmp=1 raw=40000");
  EXPECT_NEAR(ZynqmpTemp().GetTemp(), 30.6306, 0.001);
}

// For the kernel's software watchdog. It keeps running after its descriptor is closed, unless the
// letter V was written first. The library's descriptor is found among the open ones.
void LetTheWatchdogBeStopped() {
  for (int fd = 3; fd < 64; ++fd) {
    char target[32] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    if (readlink(link.c_str(), target, sizeof target - 1) <= 0) continue;
    if (std::string(target) != "/dev/watchdog") continue;
    EXPECT_EQ(write(fd, "V", 1), 1);
    close(fd);
  }
}

class Watchdog : public ::testing::Test {
 protected:
  static constexpr const char* kAttributes = "/sys/class/watchdog/watchdog0/";
  Watchdog() { log_set_quiet(true); }
  ~Watchdog() override { LetTheWatchdogBeStopped(); }
  static std::string Attribute(const char* name) {
    return ReadLine(std::string(kAttributes) + name);
  }
};

// If the watchdog were not fed, the guest would end.
TEST_F(Watchdog, IsArmedAndFed) {
  constexpr int kTimeout = 4;
  WatchdogTimer timer(kTimeout, 2);
  ASSERT_TRUE(timer.Start());
  EXPECT_EQ(Attribute("state"), "active");
  EXPECT_EQ(Attribute("timeout"), std::to_string(kTimeout));
  for (int second = 0; second < kTimeout + 2; ++second) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_TRUE(timer.Feed());
  }
  WatchdogTimer another(30, 2);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(another.Start());
  EXPECT_NE(testing::internal::GetCapturedStderr().find(strerror(EBUSY)), std::string::npos);
  EXPECT_FALSE(another.Feed());
}

TEST_F(Watchdog, ItsThreadArmsItForThirtySeconds) {
  const auto thread = std::make_shared<WatchDogThread>();
  thread->Start();
  thread->Detach();
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_EQ(Attribute("state"), "active");
  EXPECT_EQ(Attribute("timeout"), "30");
  thread->Cancel();
}

}  // namespace
