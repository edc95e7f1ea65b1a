// The interrupt notifiers on the virtual board's UIO devices. Like the kernel, they mask an
// interrupt when it fires, so no more interrupts come if a notifier does not unmask it.
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "DeviceManager.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Runnable/RunnableObjectManager.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "support/BoardFixture.h"
#include "support/LoggedLines.h"
#include "support/Sanitizers.h"
#include "support/Waiting.h"

namespace {

using namespace VeltranoSDK;     // NOLINT(google-build-using-namespace)
using namespace tessaline_test;  // NOLINT(google-build-using-namespace)
using std::chrono::milliseconds;

class Notifier : public BoardFixture {
 protected:
  Notifier() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    ASSERT_TRUE(SeriesLogicFactory::InitSeriesLogicBySeries(kSeries21));
    ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
    Fpga().ExternalTriggerIrqCtrl(kOn);
    Fpga().DaIrqCtrl(kOn);
    tessaline_board_transcript_clear();
  }

  static FpgaLogic& Fpga() { return *DeviceManagerHolder::Instance()->fpga_logic_; }

  // Switches a notifier as the exported functions do.
  template <typename Kind>
  static std::shared_ptr<Kind> SwitchOn() {
    auto notifier = std::make_shared<Kind>();
    notifier->Start();
    notifier->Detach();
    return notifier;
  }
  template <typename Kind>
  static void SwitchOff(std::shared_ptr<Kind>& notifier) {
    EXPECT_TRUE(notifier->Cancel());
    notifier.reset();
  }

  static std::size_t EventCount(const std::string& event) {
    std::size_t count = 0;
    for (const std::string& seen : Events()) count += seen.starts_with(event);
    return count;
  }

  LoggedLines log{TESSALINE_LOG_ERROR};
};

TEST_F(Notifier, ReportsTheLevelReadAfterTheInterrupt) {
  std::atomic<int> pulses{0};
  std::atomic<unsigned> level{77};
  ExternalTriggerGuard::RegisterPulseSignalCallback([&](unsigned now) {
    level = now;
    ++pulses;
  });
  auto guard = SwitchOn<ExternalTriggerGuard>();
  tessaline_board_external_trigger(1);
  ASSERT_TRUE(Eventually([&] { return pulses == 1; }));
  EXPECT_EQ(level, Fpga().GetExternalTriggerLevel());
  EXPECT_EQ(level, 1u);
  SwitchOff(guard);
}

TEST_F(Notifier, UnmasksTheInterruptOnceAfterEveryCallback) {
  std::atomic<std::size_t> arrived{0};
  DAArrivedNotifier::RegisterDAArrivedCallback([&] {
    EXPECT_EQ(EventCount("uio1 write"), arrived);
    ++arrived;
  });
  auto notifier = SwitchOn<DAArrivedNotifier>();
  EXPECT_EQ(EventCount("uio1 write 1"), 1u) << "whatever was left from before";
  tessaline_board_transcript_clear();
  for (std::size_t i = 1; i <= 5; ++i) {
    tessaline_board_da_arrived();
    ASSERT_TRUE(Eventually([&] { return arrived == i; }));
    ASSERT_TRUE(Eventually([&] { return EventCount("uio1 write 1") == i; }));
  }
  SwitchOff(notifier);
  EXPECT_EQ(EventCount("uio1 write"), 5u);
  EXPECT_EQ(EventCount("uio1 read"), 5u);
}

TEST_F(Notifier, ReportsAnInterruptRightAfterTheStart) {
  std::atomic<int> arrived{0};
  DAArrivedNotifier::RegisterDAArrivedCallback([&] { ++arrived; });
  for (int round = 1; round <= 50; ++round) {
    auto notifier = SwitchOn<DAArrivedNotifier>();
    tessaline_board_da_arrived();
    ASSERT_TRUE(Eventually([&] { return arrived == round; }));
    SwitchOff(notifier);
  }
}

TEST_F(Notifier, AnInterruptWhileNobodyListensIsNotTheLast) {
  std::atomic<int> arrived{0};
  DAArrivedNotifier::RegisterDAArrivedCallback([&] { ++arrived; });
  tessaline_board_da_arrived();
  auto notifier = SwitchOn<DAArrivedNotifier>();
  tessaline_board_da_arrived();
  EXPECT_TRUE(Eventually([&] { return arrived == 1; }));
  SwitchOff(notifier);
}

TEST_F(Notifier, SurvivesAThousandSwitchesUnderInterrupts) {
  tessaline_board_transcript_enable(0);
  std::atomic<std::uint64_t> pulses{0}, arrived{0};
  ExternalTriggerGuard::RegisterPulseSignalCallback([&](unsigned) { ++pulses; });
  DAArrivedNotifier::RegisterDAArrivedCallback([&] { ++arrived; });
  std::jthread hardware([&](std::stop_token over) {
    for (int level = 0; !over.stop_requested(); level = 1 - level) {
      tessaline_board_external_trigger(level);
      tessaline_board_da_arrived();
      if (level == 0) std::this_thread::yield();
    }
  });
  const int before = OpenDescriptors();
  for (int round = 0; round < 1000; ++round) {
    auto guard = SwitchOn<ExternalTriggerGuard>();
    auto notifier = SwitchOn<DAArrivedNotifier>();
    if (round % 10 == 0) {  // long enough to see that interrupts still come
      const std::uint64_t pulses_before = pulses, arrived_before = arrived;
      ASSERT_TRUE(Eventually([&] { return pulses > pulses_before && arrived > arrived_before; }))
          << "round " << round;
    }
    SwitchOff(guard);
    SwitchOff(notifier);
    const std::uint64_t pulses_at_off = pulses, arrived_at_off = arrived;
    ASSERT_TRUE(tessaline_test::NoDescriptorsAreLeft(before)) << "round " << round;
    // The lock around register accesses is free.
    Fpga().SetTriSpacing(static_cast<unsigned>(1000 + round));
    ASSERT_EQ(Get(fpga::kReg.TRI_SPACING), static_cast<unsigned>(1000 + round) * 50);
    ASSERT_EQ(pulses, pulses_at_off);
    ASSERT_EQ(arrived, arrived_at_off);
  }
}

TEST_F(Notifier, AnInterruptInTheMomentOfSwitchingOffIsNotTheLast) {
  std::atomic<int> arrived{0};
  DAArrivedNotifier::RegisterDAArrivedCallback([&] { ++arrived; });
  auto notifier = SwitchOn<DAArrivedNotifier>();
  notifier->Cancel();  // switched off, but still running
  tessaline_board_da_arrived();
  notifier.reset();
  EXPECT_EQ(arrived, 0);

  notifier = SwitchOn<DAArrivedNotifier>();
  tessaline_board_da_arrived();
  EXPECT_TRUE(Eventually([&] { return arrived == 1; }));
  SwitchOff(notifier);
}

TEST_F(Notifier, MaySwitchItselfOff) {
  static std::shared_ptr<DAArrivedNotifier> notifier;
  const int before = OpenDescriptors();
  std::atomic<int> arrived{0};
  DAArrivedNotifier::RegisterDAArrivedCallback([&] {
    ++arrived;
    SwitchOff(notifier);
  });
  notifier = SwitchOn<DAArrivedNotifier>();
  tessaline_board_da_arrived();
  ASSERT_TRUE(Eventually([&] { return arrived == 1; }));
  EXPECT_TRUE(Eventually([&] { return OpenDescriptors() == before; }));
  tessaline_board_da_arrived();
  ReallyWait(milliseconds(20));
  EXPECT_EQ(arrived, 1);
}

TEST_F(Notifier, KeepsItsCallbackWhileItIsSwitchedOff) {
  std::atomic<int> arrived{0};
  DAArrivedNotifier::RegisterDAArrivedCallback([&] { ++arrived; });
  for (int round = 1; round <= 3; ++round) {
    auto notifier = SwitchOn<DAArrivedNotifier>();
    tessaline_board_da_arrived();
    ASSERT_TRUE(Eventually([&] { return arrived == round; }));
    SwitchOff(notifier);
  }
}

TEST_F(Notifier, WithoutItsDeviceReportsAllTheTimeUntilSwitchedOff) {
  std::atomic<int> pulses{0}, arrived{0};
  ExternalTriggerGuard::RegisterPulseSignalCallback([&](unsigned) { ++pulses; });
  DAArrivedNotifier::RegisterDAArrivedCallback([&] { ++arrived; });
  tessaline_board_fault("uio0", "open", 0, 1, ENOENT);
  tessaline_board_fault("uio1", "open", 0, 1, ENOENT);
  auto guard = SwitchOn<ExternalTriggerGuard>();
  EXPECT_EQ(Printed(), "open \"/dev/uio0\" failed!\n");
  auto notifier = SwitchOn<DAArrivedNotifier>();
  EXPECT_EQ(Printed(), "open \"/dev/uio1\" failed!\n");
  ASSERT_TRUE(Eventually([&] { return pulses > 100 && arrived > 100; }));
  SwitchOff(guard);
  SwitchOff(notifier);
  const int pulses_at_off = pulses, arrived_at_off = arrived;
  ReallyWait(milliseconds(20));
  EXPECT_EQ(pulses, pulses_at_off);
  EXPECT_EQ(arrived, arrived_at_off);
}

TEST_F(Notifier, StoppedTheGuardClosesItsDevice) {
  const int before = OpenDescriptors();
  std::atomic<int> pulses{0};
  ExternalTriggerGuard::RegisterPulseSignalCallback([&](unsigned) { ++pulses; });
  auto guard = std::make_shared<ExternalTriggerGuard>();
  guard->Start();
  std::jthread hardware([&](std::stop_token over) {
    for (int level = 1; !over.stop_requested(); level = 1 - level) {
      tessaline_board_external_trigger(level);
      ReallyWait(milliseconds(1));
    }
  });
  ASSERT_TRUE(Eventually([&] { return pulses > 0; }));
  guard->Stop();
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
}

using NotifierDeathTest = Notifier;

TEST_F(NotifierDeathTest, AnInterruptWithoutACallbackEndsTheProcess) {
  EXPECT_DEATH(
      {
        DAArrivedNotifier::RegisterDAArrivedCallback({});
        auto notifier = SwitchOn<DAArrivedNotifier>();
        tessaline_board_da_arrived();
        ReallyWait(milliseconds(5000));
      },
      "bad_function_call");
}

TEST_F(NotifierDeathTest, APulseWithoutACallbackEndsTheProcess) {
  EXPECT_DEATH(
      {
        ExternalTriggerGuard::RegisterPulseSignalCallback({});
        auto guard = SwitchOn<ExternalTriggerGuard>();
        tessaline_board_external_trigger(1);
        ReallyWait(milliseconds(5000));
      },
      "bad_function_call");
}

TEST_F(Notifier, TheManagerHasThreeThreadsAndTwoEmptyPlaces) {
  const auto* manager = RunnableObjectManagerHolder::Instance();
  EXPECT_NE(manager->video_, nullptr);
  EXPECT_NE(manager->strip_, nullptr);
  EXPECT_NE(manager->watchdog_, nullptr);
  EXPECT_EQ(manager->da_notifier_.Get(), nullptr);
  EXPECT_EQ(manager->trigger_guard_.Get(), nullptr);
}

TEST_F(Notifier, TheWatchdogIsArmedAndFedEveryTwoSecondsWhenSomebodyStartsIt) {
  EXPECT_LT(tessaline_board_watchdog_left(), -900);
  WatchDogThread watchdog;
  watchdog.Start();
  watchdog.Detach();
  const auto fed = [] { return EventCount("watchdog WDIOC_KEEPALIVE"); };
  ASSERT_TRUE(Eventually([&] { return fed() == 1; }));
  ReallyWait(milliseconds(1900));
  EXPECT_EQ(fed(), 1u);
  ASSERT_TRUE(Eventually([&] { return fed() == 2; }));
  EXPECT_GT(tessaline_board_watchdog_left(), 25);
  watchdog.Cancel();
  EXPECT_TRUE(watchdog.WaitUntilGone(0)) << "its rest is cut short";
}

}  // namespace
