// Which series logic a model code selects. Every case runs in its own process, because the first
// selection is final.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "DeviceManager.h"
#include "SeriesLogic/ModelCode.h"
#include "SeriesLogic/SeriesLogic21.h"
#include "SeriesLogic/SeriesLogic22.h"
#include "SeriesLogic/SeriesLogic23.h"
#include "SeriesLogic/SeriesLogic24.h"
#include "SeriesLogic/SeriesLogic25.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "tessaline/log.h"
#include "tessaline/startup.h"

namespace VeltranoSDK {
namespace {

using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

constexpr int kVersion = 41915;

struct Known {
  const char* model;
  SeriesNumber series;
  const std::type_info& logic;
};

void PrintTo(const Known& row, std::ostream* out) { *out << row.model; }

const Known kKnown[] = {
    {"K3610", kSeries21, typeid(SeriesLogic21)},
    {"K3660", kSeries21, typeid(SeriesLogic21)},
    {"K36", kSeries21, typeid(SeriesLogic21)},
    {"K3610arm_rebuild", kSeries21, typeid(SeriesLogic21)},
    {"K3710", kSeries22, typeid(SeriesLogic22)},
    {"K3740-whatever", kSeries22, typeid(SeriesLogic22)},
    {"K3710arm_rebuild", kSeries22, typeid(SeriesLogic22)},
    {"K3710CH16", kSeries22, typeid(SeriesLogic22)},
    {"K3710ch16", kSeries22ch16, typeid(SeriesLogic22ch16)},
    {"K37ch16", kSeries22ch16, typeid(SeriesLogic22ch16)},
    {"K3710ch16arm_rebuild", kSeries22ch16Arm, typeid(SeriesLogic22ch16Arm)},
    {"K3710arm_rebuildch16", kSeries22ch16Arm, typeid(SeriesLogic22ch16Arm)},
    {"K3710_arm_rebuild_x_ch16_y", kSeries22ch16Arm, typeid(SeriesLogic22ch16Arm)},
    {"K38", kSeries23, typeid(SeriesLogic23)},
    {"K3820", kSeries23, typeid(SeriesLogic23)},
    {"K3810arm_rebuild", kSeries23, typeid(SeriesLogic23)},
    {"K38100", kSeries23, typeid(SeriesLogic23)},
    {"K3810 ", kSeries23, typeid(SeriesLogic23)},
    {"K3810", kSeries2320, typeid(SeriesLogic2320)},
    {"K3910", kSeries24, typeid(SeriesLogic24)},
    {"K39", kSeries24, typeid(SeriesLogic24)},
    {"K3920ch16", kSeries24, typeid(SeriesLogic24)},
    {"K3920arm_rebuild", kSeries24ArmRebuild, typeid(SeriesLogic24ArmRebuild)},
    {"K4010", kSeries25, typeid(SeriesLogic25)},
    {"K40", kSeries25, typeid(SeriesLogic25)},
    {"K4030arm_rebuild", kSeries25ArmRebuild, typeid(SeriesLogicArmRebuild)},
    {"K40_arm_rebuild_ch16", kSeries25ArmRebuild, typeid(SeriesLogicArmRebuild)},
};

class KnownModel : public ::testing::TestWithParam<Known> {};

TEST_P(KnownModel, SelectsItsSeriesAndSaysNothing) {
  EXPECT_EQ(SeriesOfModelCode(GetParam().model), GetParam().series);

  CaptureStdout();
  EXPECT_EQ(GetLibVersion(GetParam().model), kVersion);
  EXPECT_EQ(GetCapturedStdout(), "");

  const auto logic = SeriesLogicFactory::GetSeriesLogicInstance();
  ASSERT_NE(logic, nullptr);
  const SeriesLogic& chosen = *logic;
  EXPECT_EQ(typeid(chosen), GetParam().logic);
  EXPECT_EQ(DeviceManagerHolder::Instance()->model_, GetParam().model);
}

std::string CaseName(std::string text) {
  for (char& c : text) {
    if (isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return text;
}

INSTANTIATE_TEST_SUITE_P(ModelSelection, KnownModel, ::testing::ValuesIn(kKnown),
                         [](const auto& row) {
                           return std::to_string(row.index) + "_" + CaseName(row.param.model);
                         });

class UnknownModel : public ::testing::TestWithParam<const char*> {};

TEST_P(UnknownModel, IsToldInTwoLinesAndStored) {
  CaptureStdout();
  EXPECT_EQ(GetLibVersion(GetParam()), kVersion);
  EXPECT_EQ(GetCapturedStdout(),
            "error: SeriesLogicFactory::InitSeriesLogicBySeries failed! series_number:10 \n"
            "error :InitSeriesLogicAndDeviceManager input_model:" +
                std::string(GetParam()) + "\n");
  EXPECT_EQ(SeriesLogicFactory::GetSeriesLogicInstance(), nullptr);
  EXPECT_EQ(DeviceManagerHolder::Instance()->model_, GetParam());
}

INSTANTIATE_TEST_SUITE_P(ModelSelection, UnknownModel,
                         ::testing::Values("", "K", "K3", "k3610", "K41", "K35", " K3610", "K3a",
                                           "XK381", "arm_rebuild"),
                         [](const auto& row) {
                           return std::to_string(row.index) + "_" + CaseName(row.param);
                         });

TEST(ModelSelection, FirstKnownModelIsFinal) {
  GetLibVersion("K3610");
  const auto first = SeriesLogicFactory::GetSeriesLogicInstance();
  CaptureStdout();
  EXPECT_EQ(GetLibVersion("K4010arm_rebuild"), kVersion);
  EXPECT_EQ(SeriesLogicFactory::GetSeriesLogicInstance(), first);
  EXPECT_EQ(DeviceManagerHolder::Instance()->model_, "K4010arm_rebuild");

  EXPECT_EQ(GetLibVersion("unheard of"), kVersion);
  EXPECT_EQ(SeriesLogicFactory::GetSeriesLogicInstance(), first);
  EXPECT_EQ(DeviceManagerHolder::Instance()->model_, "unheard of");
  EXPECT_EQ(GetCapturedStdout(), "");
}

TEST(ModelSelection, AnUnknownModelLeavesTheChoiceOpen) {
  CaptureStdout();
  GetLibVersion("unheard of");
  GetCapturedStdout();
  GetLibVersion("K3920");
  const auto logic = SeriesLogicFactory::GetSeriesLogicInstance();
  EXPECT_NE(dynamic_cast<SeriesLogic24*>(logic.get()), nullptr);
}

TEST(ModelSelection, NullModelRaises) {
  try {
    GetLibVersion(nullptr);
    FAIL() << "nothing raised";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
  }
  EXPECT_EQ(SeriesLogicFactory::GetSeriesLogicInstance(), nullptr);
}

TEST(ModelSelection, SilencesTheLogBelowError) {
  CaptureStderr();
  GetLibVersion("K3610");
  log_log(TESSALINE_LOG_WARN, "a", 1, "not seen");
  EXPECT_EQ(GetCapturedStderr(), "");
  CaptureStderr();
  log_log(TESSALINE_LOG_ERROR, "a", 1, "seen");
  EXPECT_THAT(GetCapturedStderr(), ::testing::HasSubstr("seen"));
}

TEST(ModelSelection, IsNotOverForANumberWithoutAClass) {
  EXPECT_FALSE(SeriesLogicFactory::InitSeriesLogicBySeries(kSeriesUnknown));
  EXPECT_FALSE(SeriesLogicFactory::InitSeriesLogicBySeries(static_cast<SeriesNumber>(-1)));
  EXPECT_FALSE(SeriesLogicFactory::InitSeriesLogicBySeries(static_cast<SeriesNumber>(11)));
  EXPECT_TRUE(SeriesLogicFactory::InitSeriesLogicBySeries(kSeries25ArmRebuild));
  EXPECT_TRUE(SeriesLogicFactory::InitSeriesLogicBySeries(kSeriesUnknown));
}

}  // namespace
}  // namespace VeltranoSDK
