// Laser-line extraction and reconstruction of FpgaLogic.

#include <algorithm>
#include <cstdio>
#include <string>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/fpga/FpgaLogicUnit.h"
#include "log/Log.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kMaxThreshold = 255;
constexpr unsigned int kMinStripWidth = 1;
constexpr unsigned int kMaxStripWidth = 128;

// Bits of a signed reconstruction coefficient's register. Coefficients 9 to 17 come in threes, and
// the last of each three is narrower.
constexpr unsigned int CoefficientBits(std::size_t i) {
  if (i < 9) return 23;
  if (i < 18) return i % 3 == 2 ? 26 : 29;
  return 18;
}

// Truncates to the register: a positive number loses the bit of the sign too.
constexpr unsigned int CutCoefficient(int value, unsigned int bits) {
  const unsigned int kept = value < 0 ? bits : bits - 1;
  return static_cast<unsigned int>(value) & ((1u << kept) - 1u);
}

void PrintCoefficients(const int* values) {
  std::string line = "SetStripRebuildValue";
  for (std::size_t i = 0; i < fpga::kStripRebuildCount; ++i)
    line += ' ' + std::to_string(values[i]);
  puts(line.c_str());
}

// BR_CONT_MODE: what each point carries.
constexpr unsigned int kPointsOnly = 0;
constexpr unsigned int kWithBrightness = 1;
constexpr unsigned int kContinuous = 2;

}  // namespace

// --- Extraction -----------------------------------------------------------------------------

bool FpgaLogic::SetRisThresholdValue(unsigned int threshold) {
  Trace(__func__);
  return WriteOrTell(fpga::kReg.RIS_THRESHOLD, std::min(threshold, kMaxThreshold),
                     "SetRisThresholdValue error");
}

unsigned int FpgaLogic::GetRisThresholdValue() const {
  Trace(__func__);
  return Read(fpga::kReg.RIS_THRESHOLD);
}

bool FpgaLogic::SetStripWidthMin(unsigned int width) {
  Trace(__func__);
  return WriteOrTell(fpga::kReg.STRIP_WIDTH_MIN, std::clamp(width, kMinStripWidth, kMaxStripWidth),
                     "SetStripWidthMin error");
}

unsigned int FpgaLogic::GetStripWidthMin() const {
  Trace(__func__);
  return Read(fpga::kReg.STRIP_WIDTH_MIN);
}

bool FpgaLogic::SetStripWidthMax(unsigned int width) {
  Trace(__func__);
  return WriteOrTell(fpga::kReg.STRIP_WIDTH_MAX, std::clamp(width, kMinStripWidth, kMaxStripWidth),
                     "SetStripWidthMax error");
}

unsigned int FpgaLogic::GetStripWidthMax() const {
  Trace(__func__);
  return Read(fpga::kReg.STRIP_WIDTH_MAX);
}

bool FpgaLogic::SetBaseThreshold(int threshold) {
  return WriteOrTell(fpga::kReg.BASE_THRESHOLD, static_cast<unsigned int>(threshold),
                     "SetBaseThreshold fpga_write_addr BASE_THRESHOLD error");
}

bool FpgaLogic::SetStripSelectorImgWidth(std::uint16_t width) {
  Trace(__func__);
  return WriteOrTell(fpga::kReg.STRIP_SELECTOR_IMAGE_WIDTH, width,
                     "SetStripSelectorImgWidth fpga_write_addr STRIP_SELECTOR_IMAGE_WIDTH error");
}

// --- Image filter ---------------------------------------------------------------------------

// The filter applies its settings on the strobe's rising edge. The bit stays set until the next
// strobe.
void FpgaLogic::StrobeImageFilter() {
  constexpr unsigned int kSettle = 1000;
  const fpga::Register& reg = fpga::kReg.IMG_FILTER_THRS;
  Unit unit(*this, {{Unit::kRead, reg}, {Unit::kWrite, reg}, {Unit::kWrite, reg}});
  const unsigned int threshold = fpga::kField.filter_threshold.Of(unit.Read(reg));
  unit.Write(reg, threshold);
  Pause(kSettle);
  unit.Write(reg, threshold | fpga::kField.filter_strobe.Mask());
}

bool FpgaLogic::SetImageFilterSize(std::uint16_t width, std::uint16_t height) {
  Trace(__func__);
  if (!WriteOrTell(fpga::kReg.IMG_FILTER_WIDTH, width,
                   "SetImageFilterSize fpga_write_addr IMG_FILTER_WIDTH error") ||
      !WriteOrTell(fpga::kReg.IMG_FILTER_HEIGHT, height,
                   "SetImageFilterSize fpga_write_addr IMG_FILTER_HEIGHT error")) {
    return false;
  }
  StrobeImageFilter();
  return true;
}

bool FpgaLogic::SetImageFilterThrs(std::uint16_t threshold) {
  Trace(__func__);
  if (!WriteOrTell(fpga::kReg.IMG_FILTER_THRS, threshold,
                   "SetImageFilterThrs fpga_write_addr IMG_FILTER_THRS error")) {
    return false;
  }
  StrobeImageFilter();
  return true;
}

// --- Reconstruction -------------------------------------------------------------------------

bool FpgaLogic::SetStripRebuildValue(int* values) {
  Trace(__func__);
  if (values == nullptr) {
    LogError()("SetStripRebuildValue: no coefficients given");
    return false;
  }
  PrintCoefficients(values);
  for (std::size_t i = 0; i < fpga::kStripRebuildCount; ++i) {
    const unsigned int cut = CutCoefficient(values[i], CoefficientBits(i));
    values[i] = static_cast<int>(cut);
    Write(fpga::StripRebuild(i), cut);
  }
  PrintCoefficients(values);
  return true;
}

bool FpgaLogic::SetSampleLightLineParam(int start_x, int step_x, int count_x, int fourth,
                                        int fifth) {
  Trace(__func__);
  struct Parameter {
    fpga::Register reg;
    int value;
    const char* error;
  };
  // The last two print the texts of the second and third.
  constexpr const char* kStartError =
      "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_START_X error";
  constexpr const char* kStepError =
      "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_STEP_X error";
  constexpr const char* kCountError =
      "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_CNT_X error";
  const std::array parameters{
      Parameter{fpga::kReg.RECONSTRUCTION_START_X, start_x, kStartError},
      Parameter{fpga::kReg.RECONSTRUCTION_STEP_X, step_x, kStepError},
      Parameter{fpga::kReg.RECONSTRUCTION_CNT_X, count_x, kCountError},
      Parameter{fpga::kReg.SAMPLE_LINE_PARAM_4, fourth, kStepError},
      Parameter{fpga::kReg.SAMPLE_LINE_PARAM_5, fifth, kCountError},
  };
  return std::all_of(parameters.begin(), parameters.end(), [this](const Parameter& parameter) {
    return WriteOrTell(parameter.reg, static_cast<unsigned int>(parameter.value), parameter.error);
  });
}

bool FpgaLogic::SetStripWriteMemMode(SampleStrategy strategy) {
  Trace(__func__);
  constexpr const char* kError =
      "SetStripWriteMemMode fpga_write_addr STRIP_WRIMEM_STRATEGY_WIDTH error";
  return WriteOrTell(fpga::kReg.STRIP_WRIMEM_STRATEGY, strategy, kError) &&
         WriteOrTell(fpga::kReg.STRIP_WRIMEM_STRATEGY_WIDTH, strategy, kError);
}

unsigned int FpgaLogic::WriteBrContMode(Relaxed<bool>& flag, bool value) {
  Unit unit(*this,
            {{Unit::kWrite, fpga::kReg.BR_CONT_MODE_A}, {Unit::kWrite, fpga::kReg.BR_CONT_MODE_B}});
  flag = value;
  const unsigned int mode = continuous_flag_   ? kContinuous
                            : brightness_flag_ ? kWithBrightness
                                               : kPointsOnly;
  unit.Write(fpga::kReg.BR_CONT_MODE_A, mode);
  return unit.Write(fpga::kReg.BR_CONT_MODE_B, mode);
}

unsigned int FpgaLogic::SetBrFlag(unsigned int flag) {
  Trace(__func__);
  return WriteBrContMode(brightness_flag_, flag != 0);
}

unsigned int FpgaLogic::SetContinuousFlag(unsigned int flag) {
  Trace(__func__);
  return WriteBrContMode(continuous_flag_, flag != 0);
}

}  // namespace VeltranoSDK
