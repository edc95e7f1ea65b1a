// The image-processing pipeline, register by register. Every method returns its
// write's result: 0 is success.
#include "Devices/fpga/FpgaLogicFixture.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;

using Setter = unsigned int (FpgaLogic::*)(unsigned int);

struct Pipeline {
  const char* name;
  Setter setter;
  unsigned int value;
  Register reg;
  std::uint32_t old_word;
  std::uint32_t new_word;
  bool reads = true;
};

const std::vector<Pipeline> kPipeline{
    {"ISPHeightKeepsTheLowByte", &FpgaLogic::SetISPHeight, 0x01000438, ISP_HEIGHT, 0xFFFFFF12,
     0x00043812},
    {"BinEnable", &FpgaLogic::SetBinEnable, 1, ISP_CTRL, 0x19, 0x1D},
    {"BinEnableOffClearsTheUpperBits", &FpgaLogic::SetBinEnable, 0, ISP_CTRL, 0xFFFFFFFF, 0xFB},
    {"HotpixelEnable", &FpgaLogic::SetHotpixelEnable, 1, ISP_CTRL, 0x11, 0x19},
    {"HotpixelEnableOffClearsTheUpperBits", &FpgaLogic::SetHotpixelEnable, 0, ISP_CTRL, 0xFFFFFFFF,
     0xF7},
    {"ImgFlippingEnable", &FpgaLogic::SetImgFlippingEnable, 1, ISP_CTRL, 0x09, 0x19},
    {"ImgFlippingEnableOffClearsTheUpperBits", &FpgaLogic::SetImgFlippingEnable, 0, ISP_CTRL,
     0xFFFFFFFF, 0xEF},
    {"ObOffset", &FpgaLogic::SetObOffset, 0xFFFFFFFE, OB_OFFSET, 7, 0xFFFFFFFE, false},
    {"BriThresMaxClearsTheUpperHalf", &FpgaLogic::SetBriThresMax, 0x12, BRI_THRES, 0xFFFFFFFF,
     0xFF12},
    {"BriThresMaxIsNotCut", &FpgaLogic::SetBriThresMax, 0x30012, BRI_THRES, 0x400, 0x30412},
    {"BriThresMinClearsTheUpperHalf", &FpgaLogic::SetBriThresMin, 0x12, BRI_THRES, 0xFFFFFFFF,
     0x12FF},
    {"BriThresMinIsNotCut", &FpgaLogic::SetBriThresMin, 0x112, BRI_THRES, 0x34, 0x11234},
    {"EnhanceEnable", &FpgaLogic::SetEnhanceEnable, 1, ENHANCE_CTRL, 0xFFFFFFFE, 0xFFFFFFFF},
    {"EnhanceEnableOff", &FpgaLogic::SetEnhanceEnable, 0, ENHANCE_CTRL, 0xFFFFFFFF, 0xFFFFFFFE},
    {"EnhanceThresMax", &FpgaLogic::SetEnhanceThresMax, 1, ENHANCE_CTRL, 0xFFFFFFFF, 0xFFFFFE03},
    {"EnhanceThresMaxIsNotCut", &FpgaLogic::SetEnhanceThresMax, 0x101, ENHANCE_CTRL, 0, 0x202},
    {"EnhanceThresMin", &FpgaLogic::SetEnhanceThresMin, 1, ENHANCE_CTRL, 0xFFFFFFFF, 0xFFFE03FF},
    {"EnhanceThresNum", &FpgaLogic::SetEnhanceThresNum, 1, ENHANCE_CTRL, 0xFFFFFFFF, 0xFFE3FFFF},
    {"EnhanceGain", &FpgaLogic::SetEnhanceGain, 1, ENHANCE_CTRL, 0xFFFFFFFF, 0xFF3FFFFF},
    {"EnhanceGainIsNotCut", &FpgaLogic::SetEnhanceGain, 9, ENHANCE_CTRL, 0, 0x01200000},
    {"MedianFilterEnable", &FpgaLogic::SetMedianFilterEnable, 1, MEDIAN_CTRL, 0x80000000,
     0x80000001},
    {"MedianFilterEnableOff", &FpgaLogic::SetMedianFilterEnable, 0, MEDIAN_CTRL, 0x80000001,
     0x80000000},
    {"ErosionFilterEnable", &FpgaLogic::SetErosionFilterEnable, 1, EROSION_CTRL, 0, 1},
    {"ErosionThresMax", &FpgaLogic::SetErosionThresMax, 10, EROSION_CTRL, 0xFFFFFFFF, 0xFFFFFE15},
    {"ErosionThresMin", &FpgaLogic::SetErosionThresMin, 1, EROSION_CTRL, 0xFFFFFFFF, 0xFFFE03FF},
    {"ErosionThresNum", &FpgaLogic::SetErosionThresNum, 8, EROSION_CTRL, 0xFFFFFFFF, 0xFFF1FFFF},
    {"ErosionFilterStrategy", &FpgaLogic::SetErosionFilterStrategy, 1, EROSION_CTRL, 0xFFFFFFFF,
     0xFFBFFFFF},
    {"ErosionFilterStrategyIsNotCut", &FpgaLogic::SetErosionFilterStrategy, 5, EROSION_CTRL, 0,
     0x00A00000},
    {"FpgaContinuous", &FpgaLogic::SetFpgaContinuous, 5, FPGA_CONTINUOUS, 1, 5, false},
};

std::ostream& operator<<(std::ostream& out, const Pipeline& row) { return out << row.name; }

class ImageProcessing : public ZynqFpga, public ::testing::WithParamInterface<Pipeline> {
 protected:
  std::vector<std::string> ReadFirst() const {
    const Pipeline& row = GetParam();
    return row.reads ? std::vector{Read(row.reg, row.old_word)} : std::vector<std::string>{};
  }
};

TEST_P(ImageProcessing, Writes) {
  const Pipeline& row = GetParam();
  Set(row.reg, row.old_word);
  EXPECT_EQ((logic().*row.setter)(row.value), 0u);
  auto steps = ReadFirst();
  steps.push_back(Wrote(row.reg, row.new_word));
  EXPECT_EQ(Steps(), steps);
  EXPECT_EQ(Printed(), "");
}

TEST_P(ImageProcessing, ReturnsAFailedWrite) {
  const Pipeline& row = GetParam();
  Set(row.reg, row.old_word);
  tessaline_board_fault("fpga", "mmap", row.reads ? 1 : 0, 1, EIO);
  EXPECT_EQ((logic().*row.setter)(row.value), kAllOnes);
  EXPECT_EQ(Steps(), ReadFirst());
  EXPECT_EQ(Printed(), "");
}

INSTANTIATE_TEST_SUITE_P(Pipeline, ImageProcessing, ::testing::ValuesIn(kPipeline),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tessaline_test
