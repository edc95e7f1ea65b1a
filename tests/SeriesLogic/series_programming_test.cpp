// What each series adds at the notifications, as register accesses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <ostream>
#include <string>
#include <vector>

#include "DeviceManager.h"
#include "Devices/fpga/FpgaLogic.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "SeriesLogic/StripParseProtocol.h"
#include "support/BoardFixture.h"
#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::BoardFixture;
using tessaline_test::LoggedErrors;
using tessaline_test::Read;
using tessaline_test::Slept;
using tessaline_test::Wrote;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A board whose device objects exist.
class SeriesBoard : public BoardFixture {
 protected:
  explicit SeriesBoard(const char* model) : BoardFixture(model), model_(model) {}

  void SetUp() override {
    BoardFixture::SetUp();
    GetLibVersion(model_);
    ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
    tessaline_board_transcript_clear();
  }

  static SeriesLogic& series() { return *SeriesLogicFactory::GetSeriesLogicInstance(); }

  // The FPGA's registers as a series writes them after a change of the collect mode.
  static std::vector<std::string> WritesIn(CollectMode mode) {
    DeviceManagerHolder::Instance()->fpga_logic_->SetCollectMode(mode);
    tessaline_board_transcript_clear();
    series().Notify(kCollectModeChanged);
    return Writes();
  }

  static constexpr std::uint32_t kWideDelta = 80'000'000;  // 10000000 behind three bits

 private:
  const char* model_;
};

struct K3610Series : SeriesBoard {
  K3610Series() : SeriesBoard("K3610") {}
};

TEST_F(K3610Series, AddsNothing) {
  for (int n = kCollectModeChanged; n <= kStripDataModeChanged; ++n) {
    series().Notify(static_cast<Notification>(n));
  }
  EXPECT_THAT(Events(), IsEmpty());
}

struct K3820Series : SeriesBoard {
  explicit K3820Series(const char* model = "K3820") : SeriesBoard(model) {}

  // As the sensor has it, which needs its initialisation anew.
  int LineTimeIn(CollectMode mode) {
    EXPECT_EQ(WritesIn(mode).front(), Wrote(fpga::CMOS_TIMING_CTRL, 0));
    EXPECT_EQ(Printed(), "2509 init successful\n");
    return tessaline_board_chip_get("sensor", 0xA0) | tessaline_board_chip_get("sensor", 0xA1) << 8;
  }
};

TEST_F(K3820Series, HasSlowLinesForImagesAndFastOnesForLaserLines) {
  EXPECT_EQ(LineTimeIn(kCollectImage), 12464);
  EXPECT_EQ(LineTimeIn(kCollectLaserLine), 152);
}

TEST_F(K3820Series, SetsTheImageFilterOnceTheSensorIsReady) {
  series().Notify(kSensorInitialized);
  EXPECT_THAT(Writes(),
              ElementsAre(Wrote(fpga::IMG_FILTER_THRS, 10), Wrote(fpga::IMG_FILTER_THRS, 10),
                          Wrote(fpga::IMG_FILTER_THRS, 0x1000A)));
}

// Reads half the rows, and is programmed like the others.
struct K3810Series : K3820Series {
  K3810Series() : K3820Series("K3810") {}
};

TEST_F(K3810Series, InheritsAllOfIt) {
  series().Notify(kSensorInitialized);
  EXPECT_THAT(Writes(),
              ElementsAre(Wrote(fpga::IMG_FILTER_THRS, 10), Wrote(fpga::IMG_FILTER_THRS, 10),
                          Wrote(fpga::IMG_FILTER_THRS, 0x1000A)));
  Set(fpga::CALLBACK_LOST_NUM, 7);
  EXPECT_EQ(series().GetCallbackLostCount(), 7u);
  EXPECT_EQ(LineTimeIn(kCollectImage), 12464);
  EXPECT_EQ(LineTimeIn(kCollectLaserLine), 152);
}

struct K3920Series : SeriesBoard {
  explicit K3920Series(const char* model = "K3920") : SeriesBoard(model) {}
};

TEST_F(K3920Series, WidensTheExposureDelta) {
  Set(fpga::EXPOSURE_NUM, 6000u << 3 | 1);
  series().Notify(kExposureConfigured);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::EXPOSURE_NUM, kWideDelta | 1)));
}

TEST_F(K3920Series, ExchangesStripDataModesOneAndTwo) {
  for (const auto& [asked, stored] : {std::pair{1u, 2u}, {2u, 1u}, {0u, 0u}, {3u, 3u}}) {
    Set(fpga::STRIP_DATA_MODE, asked);
    series().Notify(kStripDataModeChanged);
    EXPECT_EQ(Get(fpga::STRIP_DATA_MODE), stored);
  }
  EXPECT_THAT(Writes(),
              ElementsAre(Wrote(fpga::STRIP_DATA_MODE, 2), Wrote(fpga::STRIP_DATA_MODE, 1)));
}

// The mode of its lines is a register of the sensor.
TEST_F(K3920Series, HasSlowLinesForImagesAndFastOnesForLaserLines) {
  EXPECT_THAT(WritesIn(kCollectImage), ElementsAre(Wrote(fpga::SENSOR_TIMING, 0x14)));
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x0080), 0x68);
  EXPECT_THAT(WritesIn(kCollectLaserLine), ElementsAre(Wrote(fpga::SENSOR_TIMING, 0x04)));
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x0080), 0x48);
}

TEST_F(K3920Series, StartsWithTheImageProcessingDefaults) {
  Set(fpga::ISP_CTRL, 0x1F);
  series().Notify(kStartupFinished);
  EXPECT_THAT(
      Writes(),
      ElementsAre(Wrote(fpga::BASE_THRESHOLD, 10), Wrote(fpga::OB_OFFSET, 0),
                  Wrote(fpga::BRI_THRES, 0), Wrote(fpga::BRI_THRES, 0),
                  Wrote(fpga::ENHANCE_CTRL, 0), Wrote(fpga::ENHANCE_CTRL, 0),
                  Wrote(fpga::ENHANCE_CTRL, 0), Wrote(fpga::ENHANCE_CTRL, 0),
                  Wrote(fpga::ENHANCE_CTRL, 0), Wrote(fpga::MEDIAN_CTRL, 0),
                  Wrote(fpga::EROSION_CTRL, 0), Wrote(fpga::EROSION_CTRL, 10 << 1),
                  Wrote(fpga::EROSION_CTRL, 10 << 1), Wrote(fpga::EROSION_CTRL, 8 << 17 | 10 << 1),
                  Wrote(fpga::EROSION_CTRL, 8 << 17 | 10 << 1), Wrote(fpga::ISP_CTRL, 0x0F)));
}

// Both variants behave alike.
struct K3910ArmSeries : K3920Series {
  K3910ArmSeries() : K3920Series("K3910arm_rebuild") {}
};

TEST_F(K3910ArmSeries, InheritsAllOfIt) {
  Set(fpga::ISP_CTRL, 0x10);
  series().Notify(kStartupFinished);
  EXPECT_EQ(Get(fpga::ISP_CTRL), 0u);
  Set(fpga::STRIP_DATA_MODE, 1);
  series().Notify(kStripDataModeChanged);
  EXPECT_EQ(Get(fpga::STRIP_DATA_MODE), 2u);
}

struct K3930Series : K3920Series {
  K3930Series() : K3920Series("K3930") {}
};

TEST_F(K3930Series, HasItsImageFlipped) {
  series().Notify(kStartupFinished);
  EXPECT_EQ(Get(fpga::ISP_CTRL), 0x10u);
}

struct K4010Series : SeriesBoard {
  explicit K4010Series(const char* model = "K4010") : SeriesBoard(model) {}

  inline static const std::vector<std::string> kImageBlanking{Wrote(fpga::LASER_OFFSET_TIME, 0x4B0),
                                                              Wrote(fpga::EXP_DELAY, 0x688C)};
  inline static const std::vector<std::string> kLaserLineBlanking{
      Wrote(fpga::LASER_OFFSET_TIME, 0x190), Wrote(fpga::EXP_DELAY, 0x2330)};
};

TEST_F(K4010Series, HasLongPausesBetweenLinesForImagesAndShortOnesForLaserLines) {
  EXPECT_THAT(WritesIn(kCollectImage), ElementsAreArray(kImageBlanking));
  EXPECT_THAT(WritesIn(kCollectLaserLine), ElementsAreArray(kLaserLineBlanking));
}

TEST_F(K4010Series, WidensTheExposureDelta) {
  Set(fpga::EXPOSURE_NUM, 0);
  series().Notify(kExposureConfigured);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::EXPOSURE_NUM, kWideDelta)));
}

struct K4010ArmSeries : K4010Series {
  K4010ArmSeries() : K4010Series("K4010arm_rebuild") {}
};

TEST_F(K4010ArmSeries, InheritsAllOfIt) {
  Set(fpga::EXPOSURE_NUM, 6000u << 3 | 1);
  series().Notify(kExposureConfigured);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::EXPOSURE_NUM, kWideDelta | 1)));
  Set(fpga::CALLBACK_LOST_NUM, 7);
  EXPECT_EQ(series().GetCallbackLostCount(), 7u);
  EXPECT_THAT(WritesIn(kCollectImage), ElementsAreArray(kImageBlanking));
  EXPECT_THAT(WritesIn(kCollectLaserLine), ElementsAreArray(kLaserLineBlanking));
}

// --- What exported functions ask of the series -------------------------------------------

struct Answers {
  const char* model;
  bool strip_thread_counts;             // lost callbacks; otherwise the FPGA does
  std::uint32_t threshold;              // that the FPGA gets for 101
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

class AnswersOf : public SeriesBoard, public ::testing::WithParamInterface<Answers> {
 protected:
  AnswersOf() : SeriesBoard(GetParam().model) {}
};

INSTANTIATE_TEST_SUITE_P(Series, AnswersOf, ::testing::ValuesIn(kAnswers),
                         [](const auto& row) { return std::string(row.param.model); });

TEST_P(AnswersOf, LostCallbacksAreCountedInOnePlace) {
  Set(fpga::CALLBACK_LOST_NUM, 7);
  if (GetParam().strip_thread_counts) {
    EXPECT_EQ(series().GetCallbackLostCount(), 0u);
    EXPECT_TRUE(series().ResetCallbackLostCount());
    EXPECT_THAT(Events(), IsEmpty());
  } else {
    EXPECT_EQ(series().GetCallbackLostCount(), 7u);
    EXPECT_FALSE(series().ResetCallbackLostCount());
    EXPECT_THAT(Steps(),
                ElementsAre(Read(fpga::CALLBACK_LOST_NUM, 7), Wrote(fpga::CALLBACK_LOST_RESET, 1),
                            Slept(1), Wrote(fpga::CALLBACK_LOST_RESET, 0), Slept(1)));
  }
}

TEST_P(AnswersOf, TheThresholdIsScaledAndRoundedDown) {
  EXPECT_EQ(SetRisThresholdValue(101), 0);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::RIS_THRESHOLD, GetParam().threshold)));
}

TEST_P(AnswersOf, PointsGrowWithTheFlagsWhereTheProcessorReconstructs) {
  const auto layout = series().strip_parse_protocol();
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
