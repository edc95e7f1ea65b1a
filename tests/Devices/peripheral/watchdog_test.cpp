// The hardware watchdog: arming, feeding and failures.
#include <cerrno>

#include "Devices/DeviceTest.h"
#include "Devices/peripheral/WatchdogTimer.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;

class Watchdog : public DeviceTest {};

TEST_F(Watchdog, StartArmsItForThirtySeconds) {
  WatchdogTimer timer(30, 2);
  EXPECT_EQ(tessaline_board_watchdog_left(), -1000);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_TRUE(timer.Start()); }), "");
  EXPECT_NEAR(tessaline_board_watchdog_left(), 30, 1);
}

TEST_F(Watchdog, FeedStartsTheCountdownAgain) {
  WatchdogTimer timer(30, 2);
  ASSERT_TRUE(timer.Start());
  usleep(10'000'000);
  EXPECT_NEAR(tessaline_board_watchdog_left(), 20, 1);
  EXPECT_TRUE(timer.Feed());
  EXPECT_NEAR(tessaline_board_watchdog_left(), 30, 1);
}

TEST_F(Watchdog, UnopenableIsTold) {
  tessaline_board_fault("watchdog", "open", 0, 1, ENOENT);
  WatchdogTimer timer;
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(timer.Start()); }),
            "Veltrano::WatchdogTimer::OnStartUp() open: No such file or directory\n");
  EXPECT_EQ(tessaline_board_watchdog_left(), -1000);
}

TEST_F(Watchdog, ARefusedTimeoutIsToldAndFeedingGoesOn) {
  tessaline_board_fault("watchdog", "WDIOC_SETTIMEOUT", 0, 1, EOPNOTSUPP);
  WatchdogTimer timer;
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(timer.Start()); }),
            "Veltrano::WatchdogTimer::OnStartUp() ioctl settimeout: Operation not supported\n");
  EXPECT_TRUE(timer.Feed());
}

TEST_F(Watchdog, FeedingWhatNeverStartedIsTold) {
  WatchdogTimer timer;
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(timer.Feed()); }),
            "Veltrano::WatchdogTimer::run ioctl keepalive: Bad file descriptor\n");
}

TEST_F(Watchdog, AFailedKeepAliveIsTold) {
  WatchdogTimer timer;
  ASSERT_TRUE(timer.Start());
  tessaline_board_fault("watchdog", "WDIOC_KEEPALIVE", 0, 1, EIO);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(timer.Feed()); }),
            "Veltrano::WatchdogTimer::run ioctl keepalive: Input/output error\n");
  EXPECT_TRUE(timer.Feed());
}

TEST_F(Watchdog, ASecondStartKeepsTheFirstOnesHold) {
  WatchdogTimer timer;
  ASSERT_TRUE(timer.Start());
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(timer.Start()); }),
            "Veltrano::WatchdogTimer::OnStartUp() open: Device or resource busy\n");
  EXPECT_TRUE(timer.Feed());
}

TEST_F(Watchdog, TheObjectsEndDoesNotDisarm) {
  { ASSERT_TRUE(WatchdogTimer().Start()); }
  EXPECT_GT(tessaline_board_watchdog_left(), 0);
}

TEST_F(Watchdog, StartIsToldAtInfo) {
  log_set_level(TESSALINE_LOG_INFO);
  WatchdogTimer timer;
  EXPECT_THAT(PrintedAsError([&] { timer.Start(); }),
              ::testing::EndsWith(": enable watchdog timer\n"));
}

}  // namespace
}  // namespace VeltranoSDK
