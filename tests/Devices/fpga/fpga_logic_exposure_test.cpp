// Exposure times, exposure count and high dynamic range, register by register.
#include "Devices/fpga/FpgaLogicFixture.h"
#include "support/LoggedLines.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

const std::vector<Rule> kExposureTimeRules{
    {.name = "SetExpTimeInSensorUnits",
     .call = [](auto& f) { return f.SetExpTime(kExposure1, 100, 10.0f); },
     .steps = {Wrote(EXP_TIME_1, 10)}},
    {.name = "SetExpTimeRoundsUp",
     .call = [](auto& f) { return f.SetExpTime(kExposure5, 101, 10.0f); },
     .steps = {Wrote(EXP_TIME_5, 11)}},
    {.name = "SetExpTimeDividesInSinglePrecision",
     // 16777217 is no float: it counts as 16777216.
     .call = [](auto& f) { return f.SetExpTime(kExposure2, 16777217, 1.0f); },
     .steps = {Wrote(EXP_TIME_2, 16777216)}},
    {.name = "SetExpTimeOfAUnitOfZeroIsTheLongest",
     .call = [](auto& f) { return f.SetExpTime(kExposure3, 1, 0.0f); },
     .steps = {Wrote(EXP_TIME_3, 0xFFFFFFFF)}},
    {.name = "SetExpTimeOfANegativeUnitIsNone",
     .call = [](auto& f) { return f.SetExpTime(kExposure4, 1, -1.0f); },
     .steps = {Wrote(EXP_TIME_4, 0)}},
    {.name = "SetExpTimeHasNoSixthSlot",
     .call = [](auto& f) { return f.SetExpTime(ExposureIndex{5}, 100, 10.0f); },
     .result = 0},
    {.name = "SetExpTimeHasNoSlotBeforeTheFirst",
     .call = [](auto& f) { return f.SetExpTime(ExposureIndex{0xFFFFFFFF}, 100, 10.0f); },
     .result = 0},
    {.name = "SetExpTimeRemembersNoTimeOfASixthSlot",
     .call =
         [](auto& f) {
           f.SetExpTime(ExposureIndex{5}, 100, 10.0f);
           return f.GetExpTime(ExposureIndex{5});
         },
     .result = 0},
    {.name = "GetExpTimeIsTheTimeSetAndReadsNothing",
     .call =
         [](auto& f) {
           f.SetExpTime(kExposure3, 100, 10.0f);
           f.SetExpTime(kExposure3, 230, 10.0f);
           return f.GetExpTime(kExposure3);
         },
     .result = 230,
     .steps = {Wrote(EXP_TIME_3, 10), Wrote(EXP_TIME_3, 23)}},
    {.name = "GetExpTimeIsZeroWhenNeverSet",
     .call = [](auto& f) { return f.GetExpTime(kExposure2); },
     .result = 0},
    {.name = "SetExpDelayTakesTheSensorsAndReturnsFalse",
     .call = [](auto& f) { return f.SetExpDelay(); },
     .result = 0,
     .steps = {Wrote(EXP_DELAY, SensorWithoutBus::kCameraDelay)}},
    {.name = "GetExpDelayHasTwelveBits",
     .given = {{EXP_DELAY, 0xFFFFF123}},
     .call = [](auto& f) { return f.GetExpDelay(); },
     .result = 0x123,
     .steps = {Read(EXP_DELAY, 0xFFFFF123)}},
};

const std::vector<Rule> kExposureNumRules{
    {.name = "SetExposureNumHasThreeBits",
     .given = {{EXPOSURE_NUM, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetExposureNum(1); },
     .steps = {Read(EXPOSURE_NUM, 0xFFFFFFFF), Wrote(EXPOSURE_NUM, 0xFFFFFFF9)}},
    {.name = "SetExposureNumOfZeros",
     .given = {{EXPOSURE_NUM, 0}},
     .call = [](auto& f) { return f.SetExposureNum(5); },
     .steps = {Read(EXPOSURE_NUM, 0), Wrote(EXPOSURE_NUM, 5)}},
    {.name = "SetExpNumHasThreeBits",
     .given = {{EXPOSURE_NUM, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetExpNum(1); },
     .steps = {Read(EXPOSURE_NUM, 0xFFFFFFFF), Wrote(EXPOSURE_NUM, 0xFFFFFFF9)}},
    {.name = "SetExpNumTakesFive",
     .given = {{EXPOSURE_NUM, 0}},
     .call = [](auto& f) { return f.SetExpNum(5); },
     .steps = {Read(EXPOSURE_NUM, 0), Wrote(EXPOSURE_NUM, 5)}},
    {.name = "SetExposureNumKeepsTheDelta",
     .given = {{EXPOSURE_NUM, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetExposureNum(5); },
     .steps = {Read(EXPOSURE_NUM, 0xFFFFFFFF), Wrote(EXPOSURE_NUM, 0xFFFFFFFD)}},
    {.name = "SetExposureNumIsNotZero",
     .call = [](auto& f) { return f.SetExposureNum(0); },
     .result = 0},
    {.name = "SetExposureNumIsAtMostFive",
     .call = [](auto& f) { return f.SetExposureNum(6); },
     .result = 0},
    {.name = "SetExposureNumTellsAFailedWrite",
     .given = {{EXPOSURE_NUM, 1}},
     .call = [](auto& f) { return f.SetExposureNum(2); },
     .result = 0,
     .steps = {Read(EXPOSURE_NUM, 1)},
     .failing_access = 1},
    {.name = "SetExposureNumDeltaKeepsTheCount",
     .given = {{EXPOSURE_NUM, 0xFFFFFFFB}},
     .call = [](auto& f) { return f.SetExposureNumDelta(6000); },
     .steps = {Read(EXPOSURE_NUM, 0xFFFFFFFB), Wrote(EXPOSURE_NUM, 0xBB83)}},
    {.name = "SetExposureNumDeltaLosesItsTopThreeBits",
     .given = {{EXPOSURE_NUM, 1}},
     .call = [](auto& f) { return f.SetExposureNumDelta(0xFFFFFFFF); },
     .steps = {Read(EXPOSURE_NUM, 1), Wrote(EXPOSURE_NUM, 0xFFFFFFF9)}},
    {.name = "SetExposureNumDeltaTellsAFailedWrite",
     .given = {{EXPOSURE_NUM, 1}},
     .call = [](auto& f) { return f.SetExposureNumDelta(2); },
     .result = 0,
     .steps = {Read(EXPOSURE_NUM, 1)},
     .failing_access = 1},
    {.name = "SetExpNumKeepsTheDeltaOfImages",
     .given = {{EXPOSURE_NUM, 0xBB81}},
     .call = [](auto& f) { return f.SetExpNum(3); },
     .steps = {Read(EXPOSURE_NUM, 0xBB81), Wrote(EXPOSURE_NUM, 0xBB83)}},
    {.name = "SetExpNumIsAtMostFive", .call = [](auto& f) { return f.SetExpNum(6); }, .result = 0},
    {.name = "SetExpNumIsNotZero", .call = [](auto& f) { return f.SetExpNum(0); }, .result = 0},
    {.name = "GetExpNumHasThreeBits",
     .given = {{EXPOSURE_NUM, 0xFFFFFFFC}},
     .call = [](auto& f) { return f.GetExpNum(); },
     .result = 4,
     .steps = {Read(EXPOSURE_NUM, 0xFFFFFFFC)}},
};

const std::vector<Rule> kHdrRules{
    {.name = "SetHDREnableKeepsTheSegment",
     .given = {{HDR_CTRL, 0x1388}},
     .call = [](auto& f) { return f.SetHDREnable(1); },
     .result = 0,
     .steps = {Read(HDR_CTRL, 0x1388), Wrote(HDR_CTRL, 0x1389)}},
    {.name = "SetHDREnableTellsAFailedWrite",
     .call = [](auto& f) { return f.SetHDREnable(1); },
     .result = kAllOnes,
     .steps = {Read(HDR_CTRL, 0)},
     .failing_access = 1},
    {.name = "GetHDREnableOn",
     .given = {{HDR_CTRL, 1}},
     .call = [](auto& f) { return f.GetHDREnable(); },
     .result = 1,
     .steps = {Read(HDR_CTRL, 1)}},
    {.name = "GetHDREnable",
     .given = {{HDR_CTRL, 0xFFFFFFFE}},
     .call = [](auto& f) { return f.GetHDREnable(); },
     .result = 0,
     .steps = {Read(HDR_CTRL, 0xFFFFFFFE)}},
    {.name = "SetHDRParamSplitsTheFirstExposure",
     .given = {{HDR_CTRL, 0xFFFFFFFF}},
     .call =
         [](auto& f) {
           f.SetExpTime(kExposure1, 100, 1.0f);
           return f.SetHDRParam(0.5, 0.25, 0.9);
         },
     .result = 0,
     .steps = {Wrote(EXP_TIME_1, 100), Read(HDR_CTRL, 0xFFFFFFFF), Wrote(HDR_CTRL, 2500u << 1 | 1),
               Wrote(HDR_SEG2, 1250), Wrote(HDR_SEG3, 1250), Wrote(HDR_GAP, 50),
               Wrote(HDR_TOTAL, 4900)}},
    {.name = "SetHDRParamTruncatesTheSegments",
     .call =
         [](auto& f) {
           f.SetExpTime(kExposure1, 1, 1.0f);
           return f.SetHDRParam(0.999, 0.019, 0);
         },
     .result = 0,
     .steps = {Wrote(EXP_TIME_1, 1), Read(HDR_CTRL, 0), Wrote(HDR_CTRL, 49u << 1),
               Wrote(HDR_SEG2, 0), Wrote(HDR_SEG3, 1), Wrote(HDR_GAP, 50),
               Wrote(HDR_TOTAL, 0xFFFFFFCE)}},
    {.name = "SetHDRParamComputesInDoublePrecision",
     // 16777217 is no float, and the second segment ends in .99999997.
     .call =
         [](auto& f) {
           f.SetExpTime(kExposure1, 16777217, 1.0f);
           return f.SetHDRParam(1.0, 0.3, 0);
         },
     .result = 0,
     .steps = {Wrote(EXP_TIME_1, 16777216), Read(HDR_CTRL, 0), Wrote(HDR_CTRL, 838860850u << 1),
               Wrote(HDR_SEG2, 251658254), Wrote(HDR_SEG3, 0u - 251658254u), Wrote(HDR_GAP, 50),
               Wrote(HDR_TOTAL, 838860750)}},
    {.name = "SetHDRParamTakesTheFractionOfTheTimeNotOfTheTicks",
     // 10 x 0.83 x 50 in this order is just below 415.
     .call =
         [](auto& f) {
           f.SetExpTime(kExposure1, 10, 1.0f);
           return f.SetHDRParam(0.83, 0, 0);
         },
     .result = 0,
     .steps = {Wrote(EXP_TIME_1, 10), Read(HDR_CTRL, 0), Wrote(HDR_CTRL, 414u << 1),
               Wrote(HDR_SEG2, 0), Wrote(HDR_SEG3, 86), Wrote(HDR_GAP, 50), Wrote(HDR_TOTAL, 400)}},
    {.name = "SetHDRParamKeepsTheEnableAlone",
     .given = {{HDR_CTRL, 0xFFFFFFFE}},
     .call = [](auto& f) { return f.SetHDRParam(0, 0, 0); },
     .result = 0,
     .steps = {Read(HDR_CTRL, 0xFFFFFFFE), Wrote(HDR_CTRL, 0), Wrote(HDR_SEG2, 0),
               Wrote(HDR_SEG3, 0), Wrote(HDR_GAP, 50), Wrote(HDR_TOTAL, 0xFFFFFF9C)}},
    {.name = "SetHDRParamWithoutAnExposureWrapsAround",
     .call = [](auto& f) { return f.SetHDRParam(0.5, 0.25, 0); },
     .result = 0,
     .steps = {Read(HDR_CTRL, 0), Wrote(HDR_CTRL, 0), Wrote(HDR_SEG2, 0), Wrote(HDR_SEG3, 0),
               Wrote(HDR_GAP, 50), Wrote(HDR_TOTAL, 0xFFFFFF9C)}},
    {.name = "SetHDRParamReturnsTheLastWrite",
     .call = [](auto& f) { return f.SetHDRParam(0.5, 0.25, 0); },
     .result = kAllOnes,
     .steps = {Read(HDR_CTRL, 0), Wrote(HDR_CTRL, 0), Wrote(HDR_SEG2, 0), Wrote(HDR_SEG3, 0),
               Wrote(HDR_GAP, 50)},
     .failing_access = 5},
};

TEST_P(FpgaRule, Holds) { Check(GetParam()); }
INSTANTIATE_TEST_SUITE_P(ExposureTime, FpgaRule, ::testing::ValuesIn(kExposureTimeRules),
                         FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(ExposureNum, FpgaRule, ::testing::ValuesIn(kExposureNumRules),
                         FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(Hdr, FpgaRule, ::testing::ValuesIn(kHdrRules), FpgaRule::Name);

TEST_F(ZynqFpga, AnExposureSlotThatDoesNotExistIsAnError) {
  const LoggedErrors errors;
  logic().SetExpTime(ExposureIndex{5}, 100, 10.0f);
  EXPECT_THAT(errors.lines(),
              ::testing::ElementsAre("Devices/FpgaLogicExposure.cpp: SetExpTime: there is no "
                                     "exposure slot 5, slots are 0 to 4"));
}

TEST_F(ZynqFpga, SetExpNumPutsTheDeltaToOneForLaserLines) {
  ASSERT_TRUE(logic().SetCollectMode(kCollectLaserLine));
  tessaline_board_transcript_clear();
  Set(EXPOSURE_NUM, 0xBB81);
  EXPECT_TRUE(logic().SetExpNum(3));
  EXPECT_THAT(Accesses(),
              ::testing::ElementsAre(Read(EXPOSURE_NUM, 0xBB81), Wrote(EXPOSURE_NUM, 0xB)));
}

}  // namespace
}  // namespace tessaline_test
