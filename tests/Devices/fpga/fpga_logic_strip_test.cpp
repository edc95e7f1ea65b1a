// Laser-line extraction, image filter and reconstruction, register by register.
#include <array>

#include "Devices/fpga/FpgaLogicFixture.h"
#include "support/LoggedLines.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

const std::vector<Rule> kExtractionRules{
    {.name = "SetRisThresholdValue",
     .call = [](auto& f) { return f.SetRisThresholdValue(30); },
     .steps = {Wrote(RIS_THRESHOLD, 30)}},
    {.name = "SetRisThresholdValueIsAtMost255",
     .call = [](auto& f) { return f.SetRisThresholdValue(300); },
     .steps = {Wrote(RIS_THRESHOLD, 255)}},
    {.name = "SetRisThresholdValueTellsAFailedWrite",
     .call = [](auto& f) { return f.SetRisThresholdValue(30); },
     .result = 0,
     .printed = "SetRisThresholdValue error\n",
     .failing_access = 0},
    {.name = "GetRisThresholdValueIsTheRegister",
     .given = {{RIS_THRESHOLD, 0x1FF}},
     .call = [](auto& f) { return f.GetRisThresholdValue(); },
     .result = 0x1FF,
     .steps = {Read(RIS_THRESHOLD, 0x1FF)}},
    {.name = "SetStripWidthMinIsAtLeastOne",
     .call = [](auto& f) { return f.SetStripWidthMin(0); },
     .steps = {Wrote(STRIP_WIDTH_MIN, 1)}},
    {.name = "SetStripWidthMinIsAtMost128",
     .call = [](auto& f) { return f.SetStripWidthMin(129); },
     .steps = {Wrote(STRIP_WIDTH_MIN, 128)}},
    {.name = "SetStripWidthMinTellsAFailedWrite",
     .call = [](auto& f) { return f.SetStripWidthMin(5); },
     .result = 0,
     .printed = "SetStripWidthMin error\n",
     .failing_access = 0},
    {.name = "GetStripWidthMin",
     .given = {{STRIP_WIDTH_MIN, 5}},
     .call = [](auto& f) { return f.GetStripWidthMin(); },
     .result = 5,
     .steps = {Read(STRIP_WIDTH_MIN, 5)}},
    {.name = "SetStripWidthMaxIsAtLeastOne",
     .call = [](auto& f) { return f.SetStripWidthMax(0); },
     .steps = {Wrote(STRIP_WIDTH_MAX, 1)}},
    {.name = "SetStripWidthMaxIsAtMost128",
     .call = [](auto& f) { return f.SetStripWidthMax(500); },
     .steps = {Wrote(STRIP_WIDTH_MAX, 128)}},
    {.name = "SetStripWidthMaxTellsAFailedWrite",
     .call = [](auto& f) { return f.SetStripWidthMax(5); },
     .result = 0,
     .printed = "SetStripWidthMax error\n",
     .failing_access = 0},
    {.name = "GetStripWidthMax",
     .given = {{STRIP_WIDTH_MAX, 50}},
     .call = [](auto& f) { return f.GetStripWidthMax(); },
     .result = 50,
     .steps = {Read(STRIP_WIDTH_MAX, 50)}},
    {.name = "SetBaseThresholdIsSigned",
     .call = [](auto& f) { return f.SetBaseThreshold(-2); },
     .steps = {Wrote(BASE_THRESHOLD, 0xFFFFFFFE)}},
    {.name = "SetBaseThresholdTellsAFailedWrite",
     .call = [](auto& f) { return f.SetBaseThreshold(10); },
     .result = 0,
     .printed = "SetBaseThreshold fpga_write_addr BASE_THRESHOLD error\n",
     .failing_access = 0},
    {.name = "SetStripSelectorImgWidth",
     .call = [](auto& f) { return f.SetStripSelectorImgWidth(0xFFFF); },
     .steps = {Wrote(STRIP_SELECTOR_IMAGE_WIDTH, 0xFFFF)}},
    {.name = "SetStripSelectorImgWidthTellsAFailedWrite",
     .call = [](auto& f) { return f.SetStripSelectorImgWidth(1); },
     .result = 0,
     .printed = "SetStripSelectorImgWidth fpga_write_addr STRIP_SELECTOR_IMAGE_WIDTH error\n",
     .failing_access = 0},
};

const std::vector<Rule> kFilterRules{
    {.name = "SetImageFilterSizeStrobes",
     .given = {{IMG_FILTER_THRS, 0xFFFF000A}},
     .call = [](auto& f) { return f.SetImageFilterSize(5, 0xFFFF); },
     .steps = {Wrote(IMG_FILTER_WIDTH, 5), Wrote(IMG_FILTER_HEIGHT, 0xFFFF),
               Read(IMG_FILTER_THRS, 0xFFFF000A), Wrote(IMG_FILTER_THRS, 0xA), Slept(1000),
               Wrote(IMG_FILTER_THRS, 0x1000A)}},
    {.name = "SetImageFilterSizeKeepsTheWholeThreshold",
     .given = {{IMG_FILTER_THRS, 0xFFFFFFFF}},
     .call = [](auto& f) { return f.SetImageFilterSize(0xFFFF, 0); },
     .steps = {Wrote(IMG_FILTER_WIDTH, 0xFFFF), Wrote(IMG_FILTER_HEIGHT, 0),
               Read(IMG_FILTER_THRS, 0xFFFFFFFF), Wrote(IMG_FILTER_THRS, 0xFFFF), Slept(1000),
               Wrote(IMG_FILTER_THRS, 0x1FFFF)}},
    {.name = "SetImageFilterThrsHasSixteenBits",
     .call = [](auto& f) { return f.SetImageFilterThrs(0xFFFF); },
     .steps = {Wrote(IMG_FILTER_THRS, 0xFFFF), Read(IMG_FILTER_THRS, 0xFFFF),
               Wrote(IMG_FILTER_THRS, 0xFFFF), Slept(1000), Wrote(IMG_FILTER_THRS, 0x1FFFF)}},
    {.name = "SetImageFilterSizeTellsAFailedWidth",
     .call = [](auto& f) { return f.SetImageFilterSize(5, 6); },
     .result = 0,
     .printed = "SetImageFilterSize fpga_write_addr IMG_FILTER_WIDTH error\n",
     .failing_access = 0},
    {.name = "SetImageFilterSizeTellsAFailedHeight",
     .call = [](auto& f) { return f.SetImageFilterSize(5, 6); },
     .result = 0,
     .steps = {Wrote(IMG_FILTER_WIDTH, 5)},
     .printed = "SetImageFilterSize fpga_write_addr IMG_FILTER_HEIGHT error\n",
     .failing_access = 1},
    {.name = "SetImageFilterThrsStrobes",
     .given = {{IMG_FILTER_THRS, 0x10063}},
     .call = [](auto& f) { return f.SetImageFilterThrs(10); },
     .steps = {Wrote(IMG_FILTER_THRS, 10), Read(IMG_FILTER_THRS, 10), Wrote(IMG_FILTER_THRS, 10),
               Slept(1000), Wrote(IMG_FILTER_THRS, 0x1000A)}},
    {.name = "SetImageFilterThrsTellsAFailedWrite",
     .call = [](auto& f) { return f.SetImageFilterThrs(10); },
     .result = 0,
     .printed = "SetImageFilterThrs fpga_write_addr IMG_FILTER_THRS error\n",
     .failing_access = 0},
};

auto SampleLightLine() {
  return [](FpgaLogic& f) { return f.SetSampleLightLineParam(-1, 2, 3, -4, 5); };
}

// Of the five writes the first n.
std::vector<std::string> LightLineSteps(std::size_t length) {
  std::vector<std::string> steps{Wrote(RECONSTRUCTION_START_X, 0xFFFFFFFF),
                                 Wrote(RECONSTRUCTION_STEP_X, 2), Wrote(RECONSTRUCTION_CNT_X, 3),
                                 Wrote(SAMPLE_LINE_PARAM_4, 0xFFFFFFFC),
                                 Wrote(SAMPLE_LINE_PARAM_5, 5)};
  steps.resize(length);
  return steps;
}

const std::vector<Rule> kReconstructionRules{
    {.name = "SetSampleLightLineParam", .call = SampleLightLine(), .steps = LightLineSteps(5)},
    {.name = "SetSampleLightLineParamStopsAtTheFirst",
     .call = SampleLightLine(),
     .result = 0,
     .printed = "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_START_X error\n",
     .failing_access = 0},
    {.name = "SetSampleLightLineParamStopsAtTheSecond",
     .call = SampleLightLine(),
     .result = 0,
     .steps = LightLineSteps(1),
     .printed = "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_STEP_X error\n",
     .failing_access = 1},
    {.name = "SetSampleLightLineParamStopsAtTheThird",
     .call = SampleLightLine(),
     .result = 0,
     .steps = LightLineSteps(2),
     .printed = "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_CNT_X error\n",
     .failing_access = 2},
    {.name = "SetSampleLightLineParamStopsAtTheFourth",
     .call = SampleLightLine(),
     .result = 0,
     .steps = LightLineSteps(3),
     .printed = "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_STEP_X error\n",
     .failing_access = 3},
    {.name = "SetSampleLightLineParamStopsAtTheFifth",
     .call = SampleLightLine(),
     .result = 0,
     .steps = LightLineSteps(4),
     .printed = "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_CNT_X error\n",
     .failing_access = 4},
    {.name = "SetStripWriteMemModeWritesBothRegisters",
     .call = [](auto& f) { return f.SetStripWriteMemMode(SampleStrategy{0x103}); },
     .steps = {Wrote(STRIP_WRIMEM_STRATEGY, 0x103), Wrote(STRIP_WRIMEM_STRATEGY_WIDTH, 0x103)}},
    {.name = "SetStripWriteMemModeTellsAFailedFirst",
     .call = [](auto& f) { return f.SetStripWriteMemMode(SampleStrategy{1}); },
     .result = 0,
     .printed = "SetStripWriteMemMode fpga_write_addr STRIP_WRIMEM_STRATEGY_WIDTH error\n",
     .failing_access = 0},
    {.name = "SetStripWriteMemModeTellsAFailedSecond",
     .call = [](auto& f) { return f.SetStripWriteMemMode(SampleStrategy{1}); },
     .result = 0,
     .steps = {Wrote(STRIP_WRIMEM_STRATEGY, 1)},
     .printed = "SetStripWriteMemMode fpga_write_addr STRIP_WRIMEM_STRATEGY_WIDTH error\n",
     .failing_access = 1},
    {.name = "SetBrFlag",
     .call = [](auto& f) { return f.SetBrFlag(5); },
     .result = 0,
     .steps = {Wrote(BR_CONT_MODE_A, 1), Wrote(BR_CONT_MODE_B, 1)}},
    {.name = "SetContinuousFlag",
     .call = [](auto& f) { return f.SetContinuousFlag(1); },
     .result = 0,
     .steps = {Wrote(BR_CONT_MODE_A, 2), Wrote(BR_CONT_MODE_B, 2)}},
    {.name = "TheContinuousFlagOutranksTheBrightnessFlag",
     .call =
         [](auto& f) {
           f.SetContinuousFlag(1);
           f.SetBrFlag(1);
           f.SetContinuousFlag(0);
           return f.SetBrFlag(0);
         },
     .result = 0,
     .steps = {Wrote(BR_CONT_MODE_A, 2), Wrote(BR_CONT_MODE_B, 2), Wrote(BR_CONT_MODE_A, 2),
               Wrote(BR_CONT_MODE_B, 2), Wrote(BR_CONT_MODE_A, 1), Wrote(BR_CONT_MODE_B, 1),
               Wrote(BR_CONT_MODE_A, 0), Wrote(BR_CONT_MODE_B, 0)}},
    {.name = "TheFlagsReturnTheSecondWrite",
     .call = [](auto& f) { return f.SetBrFlag(1); },
     .result = 0,
     .steps = {Wrote(BR_CONT_MODE_B, 1)},
     .failing_access = 0},
    {.name = "TheFlagsTellAFailedSecondWrite",
     .call = [](auto& f) { return f.SetContinuousFlag(1); },
     .result = kAllOnes,
     .steps = {Wrote(BR_CONT_MODE_A, 2)},
     .failing_access = 1},
};

TEST_P(FpgaRule, Holds) { Check(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Extraction, FpgaRule, ::testing::ValuesIn(kExtractionRules),
                         FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(ImageFilter, FpgaRule, ::testing::ValuesIn(kFilterRules), FpgaRule::Name);
INSTANTIATE_TEST_SUITE_P(Reconstruction, FpgaRule, ::testing::ValuesIn(kReconstructionRules),
                         FpgaRule::Name);

// --- Reconstruction coefficients ----------------------------------------------------------

struct Coefficient {
  std::uint32_t offset;
  std::uint32_t negative_mask;
  std::uint32_t positive_mask;
};

constexpr Coefficient Wide(std::uint32_t i) { return {4 * i, 0x1FFFFFFF, 0xFFFFFFF}; }
constexpr Coefficient Narrow(std::uint32_t i) { return {4 * i, 0x3FFFFFF, 0x1FFFFFF}; }
constexpr Coefficient First(std::uint32_t i) { return {4 * i, 0x7FFFFF, 0x3FFFFF}; }

constexpr std::array kCoefficients{
    First(0),
    First(1),
    First(2),
    First(3),
    First(4),
    First(5),
    First(6),
    First(7),
    First(8),
    Wide(9),
    Wide(10),
    Narrow(11),
    Wide(12),
    Wide(13),
    Narrow(14),
    Wide(15),
    Wide(16),
    Narrow(17),
    Coefficient{0x48, 0x3FFFF, 0x1FFFF},
    Coefficient{0x70, 0x3FFFF, 0x1FFFF},
    Coefficient{0x74, 0x3FFFF, 0x1FFFF},
};

std::string Line(const std::array<int, 21>& values) {
  std::string line = "SetStripRebuildValue";
  for (const int value : values) line += " " + std::to_string(value);
  return line + "\n";
}

class StripRebuild : public ZynqFpga {
 protected:
  // Gives every coefficient the same value and expects its cut form everywhere.
  void ExpectCut(int value, std::uint32_t Coefficient::*mask) {
    std::array<int, 21> values{};
    values.fill(value);
    const std::string before = Line(values);
    EXPECT_TRUE(logic().SetStripRebuildValue(values.data()));

    std::array<int, 21> cut{};
    std::vector<std::string> writes;
    for (std::size_t i = 0; i < cut.size(); ++i) {
      const std::uint32_t word = static_cast<std::uint32_t>(value) & kCoefficients[i].*mask;
      cut[i] = static_cast<int>(word);
      const std::string name = "STRIP_REBUILD_" + std::to_string(i);
      writes.push_back(Wrote({Block::kRebuild5, kCoefficients[i].offset, name}, word));
    }
    EXPECT_EQ(values, cut);
    EXPECT_EQ(Printed(), before + Line(cut));
    EXPECT_THAT(Steps(), ::testing::ElementsAreArray(writes));
  }
};

TEST_F(StripRebuild, PassesSmallNumbersOn) { ExpectCut(1234, &Coefficient::positive_mask); }
TEST_F(StripRebuild, CutsLargeNumbers) { ExpectCut(0x7FFFFFFF, &Coefficient::positive_mask); }
TEST_F(StripRebuild, CutsMinusOne) { ExpectCut(-1, &Coefficient::negative_mask); }
TEST_F(StripRebuild, CutsTheSmallestNumber) {
  ExpectCut(-0x7FFFFFFF - 1, &Coefficient::negative_mask);
}
TEST_F(StripRebuild, LosesTheSignPlaceOfPositiveNumbers) {
  ExpectCut(0x40000, &Coefficient::positive_mask);
}

TEST_F(StripRebuild, WithoutCoefficientsTouchesNothing) {
  const LoggedErrors errors;
  EXPECT_FALSE(logic().SetStripRebuildValue(nullptr));
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(Steps(), ::testing::IsEmpty());
  EXPECT_THAT(errors.lines(),
              ::testing::ElementsAre("Devices/FpgaLogicStrip.cpp: SetStripRebuildValue: no "
                                     "coefficients given"));
}

}  // namespace
}  // namespace tessaline_test
