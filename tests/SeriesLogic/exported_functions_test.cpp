// What the exported functions take from the series logic and pass to it.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "DeviceManager.h"
#include "Runnable/RunnableObjectManager.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "SeriesLogic/StripParseProtocol.h"
#include "support/BoardFixture.h"
#include "support/LoggedLines.h"
#include "support/Waiting.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::BoardFixture;
using tessaline_test::Eventually;
using tessaline_test::LoggedErrors;
using tessaline_test::Read;
using tessaline_test::Slept;
using tessaline_test::Wrote;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

std::shared_ptr<SeriesLogic> Series() { return SeriesLogicFactory::GetSeriesLogicInstance(); }

// A series logic that records its notifications and when they came.
class K3610 : public BoardFixture {
 protected:
  K3610() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    GetLibVersion("K3610");
    log_set_quiet(true);
    for (int n = kCollectModeChanged; n <= kStripDataModeChanged; ++n) {
      Series()->RegisterNotificationCallback(static_cast<Notification>(n), [this, n] {
        notified_.push_back(n);
        events_so_far_.push_back(Events());
      });
    }
  }

  void BuildDevices() {
    ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
    tessaline_board_transcript_clear();
  }

  std::vector<int> notified_;
  std::vector<std::vector<std::string>> events_so_far_;
};

TEST_F(K3610, StartUpNotifiesBetweenItsSteps) {
  ASSERT_EQ(RegisterHardwareInit(), 0);
  ASSERT_THAT(notified_, ElementsAre(kExposureConfigured, kTriggerConfigured, kSensorInitialized,
                                     kStartupFinished));
  const auto is_sensor = StartsWith("i2c-0 ");
  const auto laser = StartsWith("fpga write IMAGE_BLOCK_0 LASER_CTRL");
  const auto reset = StartsWith("fpga write IMAGE_BLOCK_0 CMOS_WORK_MODE");

  const auto& exposure = events_so_far_[0];
  EXPECT_EQ(exposure.back(), "fpga " + Wrote(fpga::kReg.EXPOSURE_NUM, 6000u << 3 | 1));
  EXPECT_THAT(exposure, Not(Contains(reset)));

  const auto& trigger = events_so_far_[1];
  EXPECT_EQ(trigger.back(), "fpga " + Wrote(fpga::kReg.TRIGGER_CTRL, 3));
  EXPECT_THAT(trigger, Contains(reset));
  EXPECT_THAT(trigger, Not(Contains(is_sensor)));

  const auto& sensor = events_so_far_[2];
  EXPECT_THAT(sensor, Contains(is_sensor));
  EXPECT_THAT(sensor, Not(Contains(laser)));

  const auto& finished = events_so_far_[3];
  EXPECT_THAT(finished, Contains(laser));
  EXPECT_THAT(finished, Contains("video0 VIDIOC_STREAMON"));
  EXPECT_THAT(finished, Contains("video1 VIDIOC_STREAMON"));
}

TEST_F(K3610, CollectModesAreNotifiedOnceAccepted) {
  BuildDevices();
  EXPECT_EQ(SetCollectMode(0), 0);
  EXPECT_THAT(notified_, ElementsAre(kCollectModeChanged));
  EXPECT_EQ(SetCollectMode(1), 0);
  EXPECT_THAT(notified_,
              ElementsAre(kCollectModeChanged, kCollectModeChanged, kExposureConfigured));
  notified_.clear();
  EXPECT_EQ(SetCollectMode(2), -1);
  EXPECT_THAT(notified_, IsEmpty());
}

// Makes one access fail. The next one succeeds again.
void FailAccess(unsigned int index) {
  tessaline_board_clear_faults();
  tessaline_board_fault("fpga", "mmap", index, 1, ENOMEM);
}

TEST_F(K3610, NothingIsNotifiedOfAModeTheFpgaDidNotTake) {
  BuildDevices();
  for (unsigned int access = 0; access < 8; ++access) {
    FailAccess(access);
    EXPECT_EQ(SetCollectMode(access % 2), -1) << access;
  }
  FailAccess(0);
  EXPECT_EQ(SetStripDataMode(1), -1);
  EXPECT_THAT(notified_, IsEmpty());
  FailAccess(1);
  EXPECT_EQ(SetStripDataMode(1), 0);
  EXPECT_THAT(notified_, ElementsAre(kStripDataModeChanged));
}

TEST_F(K3610, AFailedSensorIsNotifiedLikeAReadyOne) {
  tessaline_board_chip_present("sensor", 0);
  ASSERT_EQ(RegisterHardwareInit(), 0);
  EXPECT_THAT(notified_, ElementsAre(kExposureConfigured, kTriggerConfigured, kSensorInitialized,
                                     kStartupFinished));
}

TEST_F(K3610, BothThreadsHoldTheTimeStampsOfAMaster) {
  BuildDevices();
  const auto* runnables = RunnableObjectManagerHolder::Instance();
  for (const unsigned int state : {1u, 0u, 2u, 0u}) {
    EXPECT_EQ(SetMasterState(state), 0);
    EXPECT_EQ(runnables->strip_->TimeStampHold(), state != 0) << state;
    EXPECT_EQ(runnables->video_->TimeStampHold(), state != 0) << state;
  }
}

TEST_F(K3610, ResetFrameIdForgetsTheLastFrame) {
  ASSERT_EQ(RegisterHardwareInit(), 0);
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;
  tessaline_board_set_strips_per_buffer(1);
  SetCollectMode(0);
  SetTriMode(2);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  ASSERT_TRUE(Eventually([&] { return strip->LastFrameId() != 0; }));
  SetGlobalControl(0);
  EXPECT_EQ(ResetFrameID(), 0);
  EXPECT_EQ(strip->LastFrameId(), 0u);
}

std::atomic<unsigned> bytes_of_points = 0;

// There is one strip per buffer. Computes the bytes per point from the header's point count.
void OnStrips(unsigned int count, unsigned int bytes, void* data) {
  tessaline_strip_header strip;
  memcpy(&strip, data, sizeof strip);
  if (count != 1 || strip.point_count == 0) return;
  bytes_of_points = (bytes - sizeof strip) / static_cast<unsigned>(strip.point_count);
}

TEST_F(K3610, WriteStrategyOneMakesPointsFourBytes) {
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(OnStrips));
  ASSERT_EQ(RegisterHardwareInit(), 0);
  tessaline_board_set_strips_per_buffer(1);
  OpenLaser();
  SetLaserPower(50);
  SetExposureTime(1, 500);
  SetCollectMode(0);
  SetTriMode(2);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  EXPECT_TRUE(Eventually([] { return bytes_of_points == 8; }));
  EXPECT_EQ(SetStripWriteMemMode(1), 0);
  TricontrolSWTrigger();
  EXPECT_TRUE(Eventually([] { return bytes_of_points == 4; }));
}

struct Answers {
  const char* model;
  bool strip_thread_counts;             // the thread counts lost callbacks; otherwise the FPGA does
  std::uint32_t threshold;              // the FPGA's value for 101
  std::array<unsigned, 3> point_bytes;  // plain, with brightness, continuous
};

void PrintTo(const Answers& answers, std::ostream* out) { *out << answers.model; }

constexpr Answers kAnswers[]{
    {"K3610", true, 101, {8, 8, 8}},    {"K3710", true, 50, {8, 8, 8}},
    {"K3710ch16", true, 50, {8, 8, 8}}, {"K3710ch16arm_rebuild", true, 50, {2, 2, 2}},
    {"K3820", false, 50, {8, 8, 8}},    {"K3810", false, 50, {8, 8, 8}},
    {"K3920", false, 50, {8, 8, 8}},    {"K3920arm_rebuild", false, 50, {2, 4, 8}},
    {"K4010", false, 50, {8, 8, 8}},    {"K4010arm_rebuild", false, 50, {2, 4, 8}},
};

class AnswersOf : public BoardFixture, public ::testing::WithParamInterface<Answers> {
 protected:
  AnswersOf() : BoardFixture(GetParam().model) {}

  void SetUp() override {
    BoardFixture::SetUp();
    GetLibVersion(GetParam().model);
    ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
    tessaline_board_transcript_clear();
  }
};

INSTANTIATE_TEST_SUITE_P(Series, AnswersOf, ::testing::ValuesIn(kAnswers),
                         [](const auto& row) { return std::string(row.param.model); });

TEST_P(AnswersOf, LostCallbacksAreCountedInOnePlace) {
  Set(fpga::kReg.CALLBACK_LOST_NUM, 7);
  if (GetParam().strip_thread_counts) {
    EXPECT_EQ(Series()->GetCallbackLostCount(), 0u);
    EXPECT_TRUE(Series()->ResetCallbackLostCount());
    EXPECT_THAT(Events(), IsEmpty());
  } else {
    EXPECT_EQ(Series()->GetCallbackLostCount(), 7u);
    EXPECT_FALSE(Series()->ResetCallbackLostCount());
    EXPECT_THAT(Steps(), ElementsAre(Read(fpga::kReg.CALLBACK_LOST_NUM, 7),
                                     Wrote(fpga::kReg.CALLBACK_LOST_RESET, 1), Slept(1),
                                     Wrote(fpga::kReg.CALLBACK_LOST_RESET, 0), Slept(1)));
  }
}

TEST_P(AnswersOf, TheThresholdIsScaledAndRoundedDown) {
  EXPECT_EQ(SetRisThresholdValue(101), 0);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::kReg.RIS_THRESHOLD, GetParam().threshold)));
}

TEST_P(AnswersOf, PointsGrowWithTheFlagsWhereTheProcessorReconstructs) {
  const auto layout = Series()->strip_parse_protocol();
  const auto [plain, with_brightness, continuous] = GetParam().point_bytes;
  EXPECT_EQ(layout->DataNumberOfBytes(), plain);
  SetBrFlag(1);
  EXPECT_EQ(layout->DataNumberOfBytes(), with_brightness);
  SetContinuousFlag(1);
  EXPECT_EQ(layout->DataNumberOfBytes(), continuous);
  SetBrFlag(0);
  EXPECT_EQ(layout->DataNumberOfBytes(), continuous);
  SetContinuousFlag(0);
  EXPECT_EQ(layout->DataNumberOfBytes(), plain);
}

TEST(SeriesProgramming, WithoutAnFpgaIsAnErrorAndNoCrash) {
  GetLibVersion("K3920");
  const LoggedErrors errors;
  const auto series = SeriesLogicFactory::GetSeriesLogicInstance();
  series->Notify(kStartupFinished);
  series->Notify(kExposureConfigured);
  EXPECT_EQ(series->GetCallbackLostCount(), 0xFFFFFFFF);
  EXPECT_FALSE(series->ResetCallbackLostCount());
  EXPECT_THAT(errors.lines(),
              ElementsAre(HasSubstr("SeriesLogic24"), HasSubstr("SeriesLogic24"),
                          HasSubstr("FpgaLostCount"), HasSubstr("ResetFpgaLostCount")));
}

}  // namespace
}  // namespace VeltranoSDK
