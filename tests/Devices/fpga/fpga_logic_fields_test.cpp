// The limits of every field: what a setter changes in a word of zeros and in a word
// of ones, and what a getter takes of either.
#include <bit>

#include "Devices/fpga/FpgaLogicFixture.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

constexpr std::uint32_t kOnes = 0xFFFFFFFF;
constexpr std::uint32_t kBitZero = 1;
constexpr bool kCut = true;
constexpr bool kNotCut = false;

// Bits of the same register on which the method insists.
struct Needs {
  std::uint32_t mask = 0;
  std::uint32_t value = 0;
};

struct Limits {
  std::string name;
  Register reg;
  std::uint32_t bits;  // the field
  void (*set)(FpgaLogic&, unsigned int) = nullptr;
  unsigned int (*get)(const FpgaLogic&) = nullptr;
  bool cut = kCut;             // the value, to the field
  std::uint32_t kept = kOnes;  // what an update leaves of the other bits
  Needs needs = {};

  unsigned int Shift() const { return static_cast<unsigned int>(std::countr_zero(bits)); }
  std::uint32_t Given(std::uint32_t fill) const { return (fill & ~needs.mask) | needs.value; }
};

std::ostream& operator<<(std::ostream& out, const Limits& row) { return out << row.name; }

// The fields of one digital output's control word.
template <unsigned int kNumber>
std::vector<Limits> OutputLimits(const Register& reg) {
  constexpr DigitalOutputChannel kChannel{kNumber};
  const std::string output = "Output" + std::to_string(kNumber + 1);
  return {
      {output + "Width", reg, 0x001FFFFF, [](auto& f, auto v) { f.SetOutWidth(kChannel, v); },
       [](auto& f) { return f.GetOutWidth(kChannel); }},
      {output + "Event", reg, 0x00600000,
       [](auto& f, auto v) { f.SetOutEvent(kChannel, DigitalOutputEvent{v}); }},
      {output + "Mode", reg, 0x00800000,
       [](auto& f, auto v) { f.SetOutMode(kChannel, DigitalOutputMode{v}); }},
      {output + "DelayEn", reg, 0x01000000,
       [](auto& f, auto v) { f.SetOutDelayEn(kChannel, STATE{v}); },
       [](auto& f) { return f.GetOutDelayEn(kChannel); }},
      {output + "Enable", reg, 0x08000000,
       [](auto& f, auto v) { f.SetDigitalOutputEnState(kChannel, STATE{v}); },
       [](auto& f) { return f.GetDigitalOutputEnState(kChannel); }},
      {output + "DelayStandard", reg, 0x10000000,
       [](auto& f, auto v) { f.SetExtTriDelayStandard(kChannel, TriggerMode{v & kBitZero}); },
       [](auto& f) { return f.GetExtTriDelayStandard(kChannel); }},
  };
}

const std::vector<Limits> kTriggerLimits{
    {"TriMode", TRIGGER_CTRL, 0x03, [](auto& f, auto v) { f.SetTriMode(TriggerMode{v}); },
     [](auto& f) { return f.GetTriMode(); }},
    {.name = "DoorControlEn",
     .reg = TRIGGER_CTRL,
     .bits = 0x04,
     .set = [](auto& f, auto v) { f.SetDoorControlEn(STATE{v}); },
     .get = [](auto& f) { return f.GetDoorControlEn(); },
     .needs = {.mask = 0x3, .value = 0}},
    {"DelayEn", TRIGGER_CTRL, 0x10, [](auto& f, auto v) { f.SetDelayEn(STATE{v}); },
     [](auto& f) { return f.GetDelayEn(); }},
    {"TriDelayStandard", TRIGGER_CTRL, 0x20,
     [](auto& f, auto v) { f.SetTriDelayStandard(TriggerMode{v}); },
     [](auto& f) { return f.GetTriDelayStandard(); }},
    {"GlobalControl", TRIGGER_CTRL, 0x40, [](auto& f, auto v) { f.SetGlobalControl(STATE{v}); },
     [](auto& f) { return f.GetGlobalControl(); }},
    {"ReverseMode", REVERSE_CTRL, 0x003, [](auto& f, auto v) { f.SetReverseMode(ReverseMode{v}); },
     [](auto& f) { return f.GetReverseMode(); }},
    {.name = "ReverseDistance",
     .reg = REVERSE_CTRL,
     .bits = 0xFFC,
     .set = [](auto& f, auto v) { f.SetReverseDistance(v); },
     .get = [](auto& f) { return f.GetReverseDistance().second; },
     .needs = {.mask = 0x3, .value = 0x2}},
    {"MasterState", MASTER_CTRL, 0x10, [](auto& f, auto v) { f.SetMasterState(STATE{v}); },
     [](auto& f) { return f.GetMasterState(); }, kCut, 0x1F},
    {"MasterConctrolID", MASTER_CTRL, 0x0F, [](auto& f, auto v) { f.SetMasterConctrolID(v); },
     [](auto& f) { return f.GetMasterConctrolID(); }, kCut, 0x1F},
    {"DaIrq", IRQ_CTRL, 0x1, [](auto& f, auto v) { f.DaIrqCtrl(STATE{v}); }, nullptr, kNotCut,
     0xFFFF},
    {"DaDelayStandard", IRQ_CTRL, 0x2,
     [](auto& f, auto v) { f.SetExtTriDelayStandard(kDaOutput, TriggerMode{v & kBitZero}); },
     [](auto& f) { return f.GetExtTriDelayStandard(kDaOutput); }},
    {"ExternalTriggerIrq", IRQ_CTRL, 0x4,
     [](auto& f, auto v) { f.ExternalTriggerIrqCtrl(STATE{v}); }, nullptr, kNotCut, 0xFFFF},
    {"ExternalTriggerLevel", EXT_TRIGGER_LEVEL, 0x1, nullptr,
     [](auto& f) { return f.GetExternalTriggerLevel(); }},
};

const std::vector<Limits> kPolarityLimits{
    {"CamTri", POLARITY, 0x01, [](auto& f, auto v) { f.SetCamTriPolarity(v); }},
    {"CamRes", POLARITY, 0x02, [](auto& f, auto v) { f.SetCamResPolarity(v); }},
    {"LasTri", POLARITY, 0x04, [](auto& f, auto v) { f.SetLasTriPolarity(v); }},
    {"ExtTri", POLARITY, 0x08, [](auto& f, auto v) { f.SetExtTriPolarity(v); }},
    {"Out1", POLARITY, 0x10, [](auto& f, auto v) { f.SetOutPolarity(kDigitalOutput1, v); }},
    {"Out2", POLARITY, 0x20, [](auto& f, auto v) { f.SetOutPolarity(kDigitalOutput2, v); }},
    {"All", POLARITY, 0x3F, nullptr, [](auto& f) { return f.GetPolarity(); }},
};

const std::vector<Limits> kSensorLimits{
    {"LaserMode", LASER_CTRL, 0x2, [](auto& f, auto v) { f.SetLaserMode(LaserMode{v}); },
     [](auto& f) { return f.GetLaserMode(); }, kCut, 0x3},
    {"TGes", SENSOR_TIMING, 0x0000001F, [](auto& f, auto v) { f.SetTGes(v); }, nullptr, kNotCut},
    {"TRow", SENSOR_TIMING, 0xFFFFFFE0, [](auto& f, auto v) { f.SetTRow(v); }, nullptr, kNotCut},
    {"FPGAVersion", FPGA_VERSION, 0x0000FFFF, nullptr, [](auto& f) { return f.GetFPGAVersion(); }},
    {"FPGASeries", FPGA_VERSION, 0xFFFF0000, nullptr, [](auto& f) { return f.GetFPGASeries(); }},
    {"ExposureDelay", EXP_DELAY, 0xFFF, nullptr, [](auto& f) { return f.GetExpDelay(); }},
    {"ExposureCount", EXPOSURE_NUM, 0x7, nullptr, [](auto& f) { return f.GetExpNum(); }},
    {"ExposureDelta", EXPOSURE_NUM, 0xFFFFFFF8, [](auto& f, auto v) { f.SetExposureNumDelta(v); }},
    {"HDREnable", HDR_CTRL, 0x1, [](auto& f, auto v) { f.SetHDREnable(v); },
     [](auto& f) { return f.GetHDREnable(); }},
    {"RoiX", ROI_OFFSET, 0x00000FFF, [](auto& f, auto v) { f.SetRoiOffset(v, 0); }, nullptr, kCut,
     0xFE000000},
    {"RoiY", ROI_OFFSET, 0x01FFF000, [](auto& f, auto v) { f.SetRoiOffset(0, v); }, nullptr, kCut,
     0xFE000000},
};

constexpr std::uint32_t kIspKept = 0xFF;
constexpr std::uint32_t kBrightnessKept = 0xFFFF;

const std::vector<Limits> kImageProcessingLimits{
    {"ISPHeight", ISP_HEIGHT, 0xFFFFFF00, [](auto& f, auto v) { f.SetISPHeight(v); }},
    {"BinEnable", ISP_CTRL, 0x04, [](auto& f, auto v) { f.SetBinEnable(v); }, nullptr, kCut,
     kIspKept},
    {"HotpixelEnable", ISP_CTRL, 0x08, [](auto& f, auto v) { f.SetHotpixelEnable(v); }, nullptr,
     kCut, kIspKept},
    {"ImgFlippingEnable", ISP_CTRL, 0x10, [](auto& f, auto v) { f.SetImgFlippingEnable(v); },
     nullptr, kCut, kIspKept},
    {"BriThresMax", BRI_THRES, 0x00FF, [](auto& f, auto v) { f.SetBriThresMax(v); }, nullptr,
     kNotCut, kBrightnessKept},
    {"BriThresMin", BRI_THRES, 0xFF00, [](auto& f, auto v) { f.SetBriThresMin(v); }, nullptr,
     kNotCut, kBrightnessKept},
    {"EnhanceEnable", ENHANCE_CTRL, 0x000001, [](auto& f, auto v) { f.SetEnhanceEnable(v); },
     nullptr, kNotCut},
    {"EnhanceThresMax", ENHANCE_CTRL, 0x0001FE, [](auto& f, auto v) { f.SetEnhanceThresMax(v); },
     nullptr, kNotCut},
    {"EnhanceThresMin", ENHANCE_CTRL, 0x01FE00, [](auto& f, auto v) { f.SetEnhanceThresMin(v); },
     nullptr, kNotCut},
    {"EnhanceThresNum", ENHANCE_CTRL, 0x1E0000, [](auto& f, auto v) { f.SetEnhanceThresNum(v); },
     nullptr, kNotCut},
    {"EnhanceGain", ENHANCE_CTRL, 0xE00000, [](auto& f, auto v) { f.SetEnhanceGain(v); }, nullptr,
     kNotCut},
    {"MedianFilterEnable", MEDIAN_CTRL, 0x1, [](auto& f, auto v) { f.SetMedianFilterEnable(v); }},
    {"ErosionFilterEnable", EROSION_CTRL, 0x000001,
     [](auto& f, auto v) { f.SetErosionFilterEnable(v); }, nullptr, kNotCut},
    {"ErosionThresMax", EROSION_CTRL, 0x0001FE, [](auto& f, auto v) { f.SetErosionThresMax(v); },
     nullptr, kNotCut},
    {"ErosionThresMin", EROSION_CTRL, 0x01FE00, [](auto& f, auto v) { f.SetErosionThresMin(v); },
     nullptr, kNotCut},
    {"ErosionThresNum", EROSION_CTRL, 0x1E0000, [](auto& f, auto v) { f.SetErosionThresNum(v); },
     nullptr, kNotCut},
    {"ErosionFilterStrategy", EROSION_CTRL, 0x600000,
     [](auto& f, auto v) { f.SetErosionFilterStrategy(v); }, nullptr, kNotCut},
};

class FieldLimits : public ZynqFpga, public ::testing::WithParamInterface<Limits> {
 public:
  static std::string Name(const ::testing::TestParamInfo<Limits>& info) { return info.param.name; }
};

TEST_P(FieldLimits, Hold) {
  const Limits& row = GetParam();
  if (row.set != nullptr) {
    Set(row.reg, row.Given(0));
    row.set(logic(), kOnes);
    const std::uint32_t ones = kOnes << row.Shift();
    EXPECT_EQ(Get(row.reg), row.needs.value | (row.cut ? ones & row.bits : ones))
        << "all ones into zeros";

    Set(row.reg, row.Given(kOnes));
    row.set(logic(), 0);
    EXPECT_EQ(Get(row.reg), row.Given(kOnes) & ~row.bits & row.kept) << "zero into ones";
  }
  if (row.get != nullptr) {
    Set(row.reg, row.Given(kOnes));
    EXPECT_EQ(row.get(logic()), row.bits >> row.Shift()) << "of all ones";
    Set(row.reg, row.Given(~row.bits));
    EXPECT_EQ(row.get(logic()), 0u) << "of the bits around it";
  }
  EXPECT_EQ(Printed(), "");
}

INSTANTIATE_TEST_SUITE_P(Trigger, FieldLimits, ::testing::ValuesIn(kTriggerLimits),
                         FieldLimits::Name);
INSTANTIATE_TEST_SUITE_P(Outputs, FieldLimits, ::testing::ValuesIn(OutputLimits<0>(DO1_CTRL)),
                         FieldLimits::Name);
INSTANTIATE_TEST_SUITE_P(MoreOutputs, FieldLimits, ::testing::ValuesIn(OutputLimits<1>(DO2_CTRL)),
                         FieldLimits::Name);
INSTANTIATE_TEST_SUITE_P(Polarity, FieldLimits, ::testing::ValuesIn(kPolarityLimits),
                         FieldLimits::Name);
INSTANTIATE_TEST_SUITE_P(Sensor, FieldLimits, ::testing::ValuesIn(kSensorLimits),
                         FieldLimits::Name);
INSTANTIATE_TEST_SUITE_P(ImageProcessing, FieldLimits, ::testing::ValuesIn(kImageProcessingLimits),
                         FieldLimits::Name);

}  // namespace
}  // namespace tessaline_test
