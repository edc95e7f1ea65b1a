// The power-on self-test of the IMX252 on a K3710 board. It triggers until the image thread reports
// an image, and restarts the sensor between triggers.
#include <algorithm>
#include <atomic>
#include <string_view>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/imx252/IMX252.h"
#include "Devices/sensor/sony/SonySensorTest.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/RunnableObjectManager.h"
#include "SeriesLogic/SeriesLogic.h"
#include "support/Waiting.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::Eventually;
using ::testing::ElementsAre;

constexpr char kRestarted[] = "PowerOnSelfTest252 POSTreset252 successful\n";
constexpr char kPassed[] = "PowerOnSelfTest252 successful\n";

std::string Repeated(int times, const std::string& text) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

class SelfTest : public SonySensorTest {
 protected:
  SelfTest() : SonySensorTest("K3710", kSeries22) {}

  static IMX252& sensor() { return dynamic_cast<IMX252&>(*devices().cmos_sensor_); }

  static bool GlobalControl() { return devices().fpga_logic_->GetGlobalControl() != 0; }

  // A trigger is a bit that goes up and down.
  static int Triggers() {
    int triggers = 0;
    const std::string control = "fpga write IMAGE_BLOCK_1 TRIGGER_CTRL = 0x";
    for (const std::string& event : Events()) {
      if (!event.starts_with(control)) continue;
      const auto value =
          static_cast<std::uint32_t>(std::stoul(event.substr(control.size()), nullptr, 16));
      triggers += (value & fpga::kField.software_trigger.Mask()) != 0 ? 1 : 0;
    }
    return triggers;
  }
};

// --- The restart ---------------------------------------------------------------------------

TEST_F(SelfTest, RestartsSensorAndTiming) {
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().PostReset(), 0); }), "");
  EXPECT_THAT(Programming(),
              ElementsAre("sleep 200", Timing(4), "sleep 1000", "3000 = 01", "sleep 1000",
                          "3000 = 00", "sleep 2500", Timing(0), "sleep 1000", Timing(4),
                          "sleep 3000", Timing(5), "sleep 100000"));
}

TEST_F(SelfTest, ARestartEndsAtAChipThatDoesNotAnswer) {
  FailAccess(0);
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().PostReset(), -1); }), "Fail to enter standby mode\n");
  EXPECT_EQ(Programming().back(), "failed");
  FailAccess(1);
  EXPECT_EQ(Printed([&] { EXPECT_EQ(sensor().PostReset(), -1); }), "Failed to exit standby mode\n");
  EXPECT_EQ(Programming().back(), "failed");
}

// --- Without an image ----------------------------------------------------------------------

TEST_F(SelfTest, GivesUpAfter22TriggersAndLeavesGlobalControlOn) {
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }),
            Repeated(21, kRestarted) + "PowerOnSelfTest252 POSTreset252 error,reset count is 21\n");
  EXPECT_EQ(Triggers(), 22);
  EXPECT_TRUE(GlobalControl());
  EXPECT_EQ(std::ranges::count(Programming(), Fpga(fpga::kReg.FRAME_ID_RESET, 1)), 0);
}

TEST_F(SelfTest, BeginsWithTheExposureAndWaitsForEveryImage) {
  Printed([&] { sensor().PowerOnSelfTest(); });
  Lines steps = Programming();
  steps.resize(8);
  // 100 microseconds, in lines of 4.175 microseconds.
  EXPECT_THAT(
      steps,
      ElementsAre(Fpga(fpga::kReg.EXP_TIME_1, 24),
                  Fpga(fpga::kReg.TRIGGER_CTRL, fpga::kField.global_control.Mask()), "sleep 10",
                  Fpga(fpga::kReg.TRIGGER_CTRL,
                       fpga::kField.global_control.Mask() | fpga::kField.software_trigger.Mask()),
                  "sleep 1", Fpga(fpga::kReg.TRIGGER_CTRL, fpga::kField.global_control.Mask()),
                  "sleep 10000", "sleep 200"));
}

TEST_F(SelfTest, ARestartThatFailsEndsIt) {
  // Two restarts of two writes each succeed.
  FailAccess(4);
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }),
            Repeated(2, kRestarted) +
                "Fail to enter standby mode\nPowerOnSelfTest252 POSTreset252 error\n");
  EXPECT_EQ(Triggers(), 3);
  EXPECT_TRUE(GlobalControl());
}

// --- With images ---------------------------------------------------------------------------

// The sensor streams a small region, so that images take no time, and the image thread waits for
// them. The self-test's own trace shows its progress. It continues when the frame of its trigger
// has been exposed. For the image that a test expects, it waits as long as a slow machine may need.
class SelfTestWithImages : public SelfTest {
 protected:
  // If the image of a trigger is expected, the 10 ms after it are longer by this factor.
  static constexpr double kPatience = 200;

  void SetUp() override {
    SelfTest::SetUp();
    log_set_quiet(true);
    const auto fpga = devices().fpga_logic_;
    fpga->EnableCollectModeSignal();
    fpga->SetExposureNum(1);
    fpga->CameraReset();
    fpga->SetCmosSensorWorkMode(static_cast<CameraSensorMode>(1));
    fpga->SetTriMode(static_cast<TriggerMode>(3));
    Printed([&] {
      sensor().RegisterInitialize(kDriveMode00);
      sensor().SetROI(8, 4, 64, 64);
    });
    log_add_callback(&Follow, this, TESSALINE_LOG_TRACE);
    video_ = RunnableObjectManagerHolder::Instance()->video_;
    video_->RegisterBeforeRunFinishFunc([this] { ready_ = true; });
    video_->RegisterImageBufCallback([this](unsigned, unsigned, void*) { ++images_; });
    video_->Start();
    video_->Detach();
    ASSERT_TRUE(Eventually([this] { return ready_.load(); }));
    tessaline_board_transcript_clear();
  }

  void TearDown() override {
    tessaline_board_set_sleep_factor(0);
    video_->Cancel();
    video_->ReleaseResource();
    SelfTest::TearDown();
  }

  // Sets the first trigger whose image arrives.
  void ExpectImageOfTrigger(unsigned trigger) { awaited_ = trigger; }

  std::shared_ptr<CaptureVideoStream> video_;
  std::atomic<bool> ready_{false};
  std::atomic<int> images_{0};

 private:
  static std::uint64_t Exposed() {
    struct tessaline_board_stream_stats stats {};
    tessaline_board_stream_stats(0, &stats);
    return stats.frames;
  }

  static void Follow(log_Event* ev) {
    if (std::string_view(ev->fmt) != "%s") return;
    auto* test = static_cast<SelfTestWithImages*>(ev->udata);
    const std::string_view function = va_arg(ev->ap, const char*);
    if (function == "ControlSoftwareTrigger") {
      ++test->triggered_;
      tessaline_board_set_sleep_factor(test->triggered_ == test->awaited_ ? kPatience : 0);
    } else if (function == "PostReset") {
      EXPECT_TRUE(Eventually([test] { return Exposed() == test->triggered_; }));
    }
  }

  unsigned awaited_ = 0;
  unsigned triggered_ = 0;
};

TEST_F(SelfTestWithImages, PassesWithTheFirst) {
  ExpectImageOfTrigger(1);
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }), kPassed);
  EXPECT_EQ(Triggers(), 1);
  EXPECT_FALSE(GlobalControl());

  // The counters start again for the application.
  const Lines steps = Programming();
  ASSERT_GE(steps.size(), 6u);
  EXPECT_THAT(Lines(steps.end() - 6, steps.end()),
              ElementsAre(Fpga(fpga::kReg.TRIGGER_CTRL, Get(fpga::kReg.TRIGGER_CTRL)), "sleep 1000",
                          Fpga(fpga::kReg.FRAME_ID_RESET, 1), "sleep 1",
                          Fpga(fpga::kReg.FRAME_ID_RESET, 0), "sleep 1"));
}

TEST_F(SelfTestWithImages, PassesWithTheThird) {
  ExpectImageOfTrigger(3);
  tessaline_board_frame_fault(0, TESSALINE_BOARD_FRAME_LOST, 0, 2);
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }), Repeated(2, kRestarted) + kPassed);
  EXPECT_EQ(Triggers(), 3);
  EXPECT_FALSE(GlobalControl());
}

TEST_F(SelfTestWithImages, NeverPassesWhenAllAreLost) {
  tessaline_board_frame_fault(0, TESSALINE_BOARD_FRAME_LOST, 0, 0);
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }),
            Repeated(21, kRestarted) + "PowerOnSelfTest252 POSTreset252 error,reset count is 21\n");
  EXPECT_EQ(Triggers(), 22);
}

TEST_F(SelfTestWithImages, NeverPassesOnceAnEarlierImageUsedTheReportUp) {
  devices().fpga_logic_->SetGlobalControl(kOn);
  devices().fpga_logic_->ControlSoftwareTrigger();
  ASSERT_TRUE(Eventually([this] { return images_ > 0; }));
  tessaline_board_transcript_clear();
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }),
            Repeated(21, kRestarted) + "PowerOnSelfTest252 POSTreset252 error,reset count is 21\n");
}

// The strip thread runs too. A strip has already arrived while no handler was registered.
class SelfTestAfterAStrip : public SelfTestWithImages {
 protected:
  void SetUp() override {
    SelfTestWithImages::SetUp();
    strip_ = RunnableObjectManagerHolder::Instance()->strip_;
    strip_->RegisterBeforeRunFinishFunc([this] { strip_ready_ = true; });
    strip_->Start();
    strip_->Detach();
    ASSERT_TRUE(Eventually([this] { return strip_ready_.load(); }));

    tessaline_board_set_strips_per_buffer(1);
    const auto fpga = devices().fpga_logic_;
    fpga->SetCollectMode(kCollectLaserLine);
    fpga->SetGlobalControl(kOn);
    fpga->ControlSoftwareTrigger();
    ASSERT_TRUE(Eventually([this] { return strip_->StripReleaseCount() > 0; }));
    ASSERT_GT(strip_->LastFrameId(), 0u);
    fpga->SetGlobalControl(kOff);
    fpga->SetCollectMode(kCollectImage);
  }

  void TearDown() override {
    strip_->Cancel();
    strip_->ReleaseResource();
    SelfTestWithImages::TearDown();
  }

  std::shared_ptr<CaptureStripStream> strip_;
  std::atomic<bool> strip_ready_{false};
};

TEST_F(SelfTestAfterAStrip, LeavesNothingBehindForTheApplication) {
  // The image's header in the driver's buffer, and the frame id when the image arrived.
  std::atomic<const std::uint64_t*> header{nullptr};
  std::uint64_t frame_id = 0;
  video_->RegisterImageBufCallback([&](unsigned width, unsigned height, void* data) {
    const auto* at = static_cast<const std::byte*>(data) + std::size_t{width} * height;
    frame_id = *reinterpret_cast<const std::uint64_t*>(at);
    header = reinterpret_cast<const std::uint64_t*>(at);
  });
  ExpectImageOfTrigger(2);  // the first trigger made the strip
  EXPECT_EQ(Printed([&] { sensor().PowerOnSelfTest(); }), kPassed);
  video_->RegisterImageBufCallback({});

  ASSERT_NE(header, nullptr);
  EXPECT_GT(frame_id, 0u);
  EXPECT_EQ(*header.load(), 0u);
  EXPECT_EQ(strip_->StripReleaseCount(), 0u);
  EXPECT_EQ(strip_->LastFrameId(), 0u);
}

TEST_F(SelfTestWithImages, RunsWhenStartUpHasFinished) {
  ExpectImageOfTrigger(1);
  EXPECT_EQ(Printed([] { SeriesLogicFactory::GetSeriesLogicInstance()->Notify(kStartupFinished); }),
            kPassed);
}

}  // namespace
}  // namespace VeltranoSDK
