// Notifications, board values, strip layouts and fixed answers of the series.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Devices/fpga/FpgaRegister.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogic21.h"
#include "SeriesLogic/SeriesLogic22.h"
#include "SeriesLogic/SeriesLogic23.h"
#include "SeriesLogic/SeriesLogic24.h"
#include "SeriesLogic/SeriesLogic25.h"
#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

// --- Notifications -----------------------------------------------------------------------

TEST(Notifications, RunInTheOrderOfRegistrationEveryTime) {
  SeriesLogic21 series;
  std::vector<std::string> calls;
  series.RegisterNotificationCallback(kSensorInitialized, [&] { calls.emplace_back("first"); });
  series.RegisterNotificationCallback(kTriggerConfigured, [&] { calls.emplace_back("other"); });
  series.RegisterNotificationCallback(kSensorInitialized, [&] { calls.emplace_back("second"); });

  series.Notify(kSensorInitialized);
  EXPECT_THAT(calls, ElementsAre("first", "second"));
  series.Notify(kSensorInitialized);
  EXPECT_THAT(calls, ElementsAre("first", "second", "first", "second"));
}

TEST(Notifications, ThatNobodyRegisteredForDoNothing) {
  SeriesLogic21 series;
  int calls = 0;
  series.RegisterNotificationCallback(kSensorInitialized, [&] { ++calls; });
  for (int n = -1; n <= 6; ++n) {
    if (n != kSensorInitialized) series.Notify(static_cast<Notification>(n));
  }
  EXPECT_EQ(calls, 0);
  series.Notify(kSensorInitialized);
  EXPECT_EQ(calls, 1);
}

TEST(Notifications, RaiseAtAnEmptyCallbackAndCanBeUsedAfterwards) {
  SeriesLogic21 series;
  std::vector<std::string> calls;
  series.RegisterNotificationCallback(kStartupFinished, [&] { calls.emplace_back("before"); });
  series.RegisterNotificationCallback(kStartupFinished, nullptr);
  series.RegisterNotificationCallback(kStartupFinished, [&] { calls.emplace_back("after"); });

  EXPECT_THROW(series.Notify(kStartupFinished), std::bad_function_call);
  EXPECT_THAT(calls, ElementsAre("before"));
  // The lock must be free, otherwise these calls would wait for ever.
  series.RegisterNotificationCallback(kTriggerConfigured, [&] { calls.emplace_back("later"); });
  series.Notify(kTriggerConfigured);
  EXPECT_THAT(calls, ElementsAre("before", "later"));
}

TEST(Notifications, HandACallbacksExceptionToTheSender) {
  SeriesLogic21 series;
  series.RegisterNotificationCallback(kStartupFinished, [] { throw std::runtime_error("no"); });
  EXPECT_THROW(series.Notify(kStartupFinished), std::runtime_error);
  EXPECT_THROW(series.Notify(kStartupFinished), std::runtime_error);
}

// --- Every series as it stands -----------------------------------------------------------

struct Series {
  const char* name;
  std::shared_ptr<SeriesLogic> (*make)();
  bool zynq_mp;
  const char* laser_bus;  // bus of the DA chip and the potentiometer
  const char* sensor_bus;
  std::vector<std::string> gpio_lines;
  float threshold_coefficient;
  unsigned int bytes_per_point;
};

void PrintTo(const Series& series, std::ostream* out) { *out << series.name; }

template <typename Logic>
std::shared_ptr<SeriesLogic> Make() {
  return std::make_shared<Logic>();
}

const std::vector<std::string> kI2cBoardLines{"907", "934", "961", "962", "963", "969"};
const std::vector<std::string> kSpiBoardLines{"921", "934", "965", "964", "966", "969"};
const std::vector<std::string> kMpBoardLines{"363", "364", "417", "416", "418", "0"};

const Series kAllSeries[] = {
    {"21", Make<SeriesLogic21>, false, "/dev/i2c-1", "/dev/i2c-0", kI2cBoardLines, 1.0F, 8},
    {"22", Make<SeriesLogic22>, false, "/dev/i2c-1", "/dev/i2c-0", kI2cBoardLines, 0.5F, 8},
    {"22ch16", Make<SeriesLogic22ch16>, false, "/dev/i2c-1", "/dev/i2c-0", kI2cBoardLines, 0.5F, 8},
    {"22ch16Arm", Make<SeriesLogic22ch16Arm>, false, "/dev/i2c-1", "/dev/i2c-0", kI2cBoardLines,
     0.5F, 2},
    {"23", Make<SeriesLogic23>, false, "/dev/i2c-0", "/dev/spidev1.0", kSpiBoardLines, 0.5F, 8},
    {"2320", Make<SeriesLogic2320>, false, "/dev/i2c-0", "/dev/spidev1.0", kSpiBoardLines, 0.5F, 8},
    {"24", Make<SeriesLogic24>, false, "/dev/i2c-0", "/dev/spidev1.0", kSpiBoardLines, 0.5F, 8},
    {"24Arm", Make<SeriesLogic24ArmRebuild>, false, "/dev/i2c-0", "/dev/spidev1.0", kSpiBoardLines,
     0.5F, 2},
    {"25", Make<SeriesLogic25>, true, "/dev/i2c-0", "/dev/spidev0.0", kMpBoardLines, 0.5F, 8},
    {"25Arm", Make<SeriesLogicArmRebuild>, true, "/dev/i2c-0", "/dev/spidev0.0", kMpBoardLines,
     0.5F, 2},
};

class EverySeries : public ::testing::TestWithParam<Series> {};

TEST_P(EverySeries, CarriesItsBoardsValues) {
  const Series& expected = GetParam();
  const auto series = expected.make();
  EXPECT_EQ(series->da_chip_i2c_dev(), expected.laser_bus);
  EXPECT_EQ(series->digital_pot_i2c_dev(), expected.laser_bus);
  EXPECT_EQ(series->sensor_bus_dev(), expected.sensor_bus);
  std::vector<std::string> lines;
  for (int line = 1; line <= 6; ++line) lines.push_back(series->gpio_line(line));
  EXPECT_EQ(lines, expected.gpio_lines);

  const auto regions = series->fpga_register();
  EXPECT_EQ(regions->GetImageBaseAddress(), expected.zynq_mp ? 0xA0000000 : 0x43C00000);
  EXPECT_EQ(regions->GetRebuildBaseAddress(), expected.zynq_mp ? 0xB0000000 : 0x83C00000);
}

TEST_P(EverySeries, ScalesTheThresholdAndLaysOutStripsItsWay) {
  const auto series = GetParam().make();
  EXPECT_EQ(series->GetRisingEdgeThresholdCoeff(), GetParam().threshold_coefficient);
  EXPECT_EQ(series->strip_parse_protocol()->StripCountNumberOfBytes(), 8u);
  EXPECT_EQ(series->strip_parse_protocol()->DataNumberOfBytes(), GetParam().bytes_per_point);
}

INSTANTIATE_TEST_SUITE_P(Series, EverySeries, ::testing::ValuesIn(kAllSeries),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(SeriesFamilies, DeriveFromEachOther) {
  EXPECT_NE(dynamic_cast<SeriesLogic22*>(Make<SeriesLogic22ch16>().get()), nullptr);
  EXPECT_NE(dynamic_cast<SeriesLogic22ch16*>(Make<SeriesLogic22ch16Arm>().get()), nullptr);
  EXPECT_NE(dynamic_cast<SeriesLogic23*>(Make<SeriesLogic2320>().get()), nullptr);
  EXPECT_NE(dynamic_cast<SeriesLogic24*>(Make<SeriesLogic24ArmRebuild>().get()), nullptr);
  EXPECT_NE(dynamic_cast<SeriesLogic25*>(Make<SeriesLogicArmRebuild>().get()), nullptr);
}

// --- Series 23 and 25 --------------------------------------------------------------------

TEST(Series23, ReadsAllRowsByDefault) {
  SeriesLogic23 series;
  EXPECT_EQ(series.GetDefaultCmosReadoutDriveMode(), kDriveMode00);
  EXPECT_EQ(series.GetSubsamplingPLDriveMode(), kDriveMode11);
  EXPECT_EQ(series.limit_a(), 4200u);
  EXPECT_EQ(series.limit_b(), 2048u);
}

TEST(Series23, CountsRowsFromTheOtherEnd) {
  SeriesLogic23 series;
  EXPECT_THAT(series.CalStartPoint(28, 100, 560, 200), Pair(28u, 1748u));
  EXPECT_THAT(series.CalStartPoint(0, 0, 1, 2048), Pair(0u, 0u));
  EXPECT_THAT(series.CalStartPoint(0, 2000, 7, 100), Pair(0u, 4294967244u));
}

TEST(Series2320, ReadsHalfTheRows) {
  SeriesLogic2320 series;
  EXPECT_EQ(series.GetDefaultCmosReadoutDriveMode(), kDriveMode11);
  EXPECT_EQ(series.GetSubsamplingPLDriveMode(), 1u);
  EXPECT_EQ(series.limit_a(), 4200u);
  EXPECT_EQ(series.limit_b(), 1024u);
  EXPECT_THAT(series.CalStartPoint(28, 100, 560, 200), Pair(28u, 1448u));
  EXPECT_THAT(series.CalStartPoint(0, 1000, 0, 25), Pair(0u, 4294967294u));
}

TEST(Series25, TellsTheBytesOfAPoint) {
  EXPECT_EQ(SeriesLogic25().GetStripPointDataByteCount(), 8);
  EXPECT_EQ(SeriesLogicArmRebuild().GetStripPointDataByteCount(), 4);
}

// --- Strip layouts -----------------------------------------------------------------------

TEST(StripLayout, WithoutFlagsIgnoresThem) {
  StripParseProtocol plain;
  StripParseProtocol22ch16Arm narrow;
  for (unsigned int flag : {1u, 0u, 5u}) {
    plain.SetBrFlag(flag);
    plain.SetCFlag(flag);
    narrow.SetBrFlag(flag);
    narrow.SetCFlag(flag);
    EXPECT_EQ(plain.DataNumberOfBytes(), 8u);
    EXPECT_EQ(narrow.DataNumberOfBytes(), 2u);
    EXPECT_EQ(narrow.StripCountNumberOfBytes(), 8u);
  }
}

TEST(StripLayout, GrowsWithTheFlagsAndTheContinuousOnePrevails) {
  StripParseProtocol25Arm layout;
  EXPECT_EQ(layout.DataNumberOfBytes(), 2u);
  layout.SetBrFlag(1);
  EXPECT_EQ(layout.DataNumberOfBytes(), 4u);
  layout.SetCFlag(1);
  EXPECT_EQ(layout.DataNumberOfBytes(), 8u);
  layout.SetBrFlag(0);
  EXPECT_EQ(layout.DataNumberOfBytes(), 8u);
  layout.SetBrFlag(5);
  EXPECT_EQ(layout.DataNumberOfBytes(), 8u);
  layout.SetCFlag(0);
  EXPECT_EQ(layout.DataNumberOfBytes(), 4u);
  layout.SetBrFlag(0);
  EXPECT_EQ(layout.DataNumberOfBytes(), 2u);
  layout.SetCFlag(0x80000000);
  EXPECT_EQ(layout.DataNumberOfBytes(), 8u);
  EXPECT_EQ(layout.StripCountNumberOfBytes(), 8u);
}

}  // namespace
}  // namespace VeltranoSDK
