// What each series adds at the notifications, as register accesses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DeviceManager.h"
#include "Devices/FpgaLogic.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "support/BoardFixture.h"
#include "support/LoggedErrors.h"
#include "tessaline/startup.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::BoardFixture;
using tessaline_test::LoggedErrors;
using tessaline_test::Wrote;
using ::testing::ElementsAre;
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

TEST_F(K3610Series, CountsLostCallbacksInTheStripThread) {
  Set(fpga::CALLBACK_LOST_NUM, 7);
  EXPECT_EQ(series().GetCallbackLostCount(), 0u);
  EXPECT_TRUE(series().ResetCallbackLostCount());
  EXPECT_THAT(Accesses(), IsEmpty());
}

struct K3820Series : SeriesBoard {
  explicit K3820Series(const char* model = "K3820") : SeriesBoard(model) {}
};

TEST_F(K3820Series, SetsTheImageFilterOnceTheSensorIsReady) {
  series().Notify(kSensorInitialized);
  EXPECT_THAT(Writes(),
              ElementsAre(Wrote(fpga::IMG_FILTER_THRS, 10), Wrote(fpga::IMG_FILTER_THRS, 10),
                          Wrote(fpga::IMG_FILTER_THRS, 0x1000A)));
}

TEST_F(K3820Series, CountsLostCallbacksInTheFpga) {
  Set(fpga::CALLBACK_LOST_NUM, 7);
  EXPECT_EQ(series().GetCallbackLostCount(), 7u);
  EXPECT_FALSE(series().ResetCallbackLostCount());
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::CALLBACK_LOST_RESET, 1),
                                    Wrote(fpga::CALLBACK_LOST_RESET, 0)));
}

// Reads half the rows, and is programmed like the others.
struct K3810Series : K3820Series {
  K3810Series() : K3820Series("K3810") {}
};

TEST_F(K3810Series, InheritsAllOfIt) {
  for (int n = kCollectModeChanged; n <= kStripDataModeChanged; ++n) {
    if (n != kSensorInitialized) series().Notify(static_cast<Notification>(n));
  }
  EXPECT_THAT(Accesses(), IsEmpty());
  series().Notify(kSensorInitialized);
  EXPECT_THAT(Writes(),
              ElementsAre(Wrote(fpga::IMG_FILTER_THRS, 10), Wrote(fpga::IMG_FILTER_THRS, 10),
                          Wrote(fpga::IMG_FILTER_THRS, 0x1000A)));
  Set(fpga::CALLBACK_LOST_NUM, 7);
  EXPECT_EQ(series().GetCallbackLostCount(), 7u);
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
};

TEST_F(K4010Series, WidensTheExposureDelta) {
  Set(fpga::EXPOSURE_NUM, 0);
  series().Notify(kExposureConfigured);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::EXPOSURE_NUM, kWideDelta)));
}

struct K4010ArmSeries : K4010Series {
  K4010ArmSeries() : K4010Series("K4010arm_rebuild") {}
};

TEST_F(K4010ArmSeries, InheritsAllOfIt) {
  for (int n = kCollectModeChanged; n <= kStripDataModeChanged; ++n) {
    if (n != kExposureConfigured) series().Notify(static_cast<Notification>(n));
  }
  EXPECT_THAT(Accesses(), IsEmpty());
  Set(fpga::EXPOSURE_NUM, 6000u << 3 | 1);
  series().Notify(kExposureConfigured);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::EXPOSURE_NUM, kWideDelta | 1)));
  Set(fpga::CALLBACK_LOST_NUM, 7);
  EXPECT_EQ(series().GetCallbackLostCount(), 7u);
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
