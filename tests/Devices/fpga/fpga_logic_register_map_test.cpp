// The addresses of the FPGA's registers, as numbers. The rest of the system, including the virtual
// board, takes them from the map.
#include <array>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Devices/fpga/FpgaLogicFixture.h"
#include "support/LoggedLines.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;
using ::testing::ElementsAre;

// --- Blocks -------------------------------------------------------------------------------

struct BlockPlace {
  Block block;
  std::string_view name;
  std::uint32_t on_zynq;
  std::uint32_t on_zynqmp;
};

constexpr std::array kBlockPlaces{
    BlockPlace{Block::kImage0, "IMAGE_BLOCK_0", 0x43C00000, 0xA0000000},
    BlockPlace{Block::kImage1, "IMAGE_BLOCK_1", 0x43C10000, 0xA0010000},
    BlockPlace{Block::kImage2, "IMAGE_BLOCK_2", 0x43C20000, 0xA0020000},
    BlockPlace{Block::kImage3, "IMAGE_BLOCK_3", 0x43C30000, 0xA0030000},
    BlockPlace{Block::kImage4, "IMAGE_BLOCK_4", 0x43C40000, 0xA0040000},
    BlockPlace{Block::kRebuild0, "REBUILD_BLOCK_0", 0x83C00000, 0xB0000000},
    BlockPlace{Block::kRebuild1, "REBUILD_BLOCK_1", 0x83C10000, 0xB0010000},
    BlockPlace{Block::kRebuild2, "REBUILD_BLOCK_2", 0x83C20000, 0xB0020000},
    BlockPlace{Block::kRebuild4, "REBUILD_BLOCK_4", 0x83C40000, 0xB0040000},
    BlockPlace{Block::kRebuild5, "REBUILD_BLOCK_5", 0x83C50000, 0xB0050000},
    BlockPlace{Block::kRebuild6, "REBUILD_BLOCK_6", 0x83C60000, 0xB0060000},
    BlockPlace{Block::kRebuild6B, "REBUILD_BLOCK_6B", 0x83C60000, 0xB0060000},
};

TEST(RegisterMap, HasEveryBlockAtItsAddressOnEitherFamily) {
  ASSERT_EQ(kBlockPlaces.size(), kBlockCount);
  for (const BlockPlace& place : kBlockPlaces) {
    EXPECT_EQ(Info(place.block).name, place.name);
    EXPECT_EQ(BaseAddress(place.block, kZynqRegions), place.on_zynq) << place.name;
    EXPECT_EQ(BaseAddress(place.block, kZynqMpRegions), place.on_zynqmp) << place.name;
  }
}

// --- Registers ----------------------------------------------------------------------------

struct RegisterPlace {
  Register reg;
  std::string_view block;
  std::uint32_t offset;
  std::string_view name;
};

const std::vector<RegisterPlace> kRegisterPlaces{
    {kReg.CMOS_WORK_MODE, "IMAGE_BLOCK_0", 0x00, "CMOS_WORK_MODE"},
    {kReg.EXP_TIME_1, "IMAGE_BLOCK_0", 0x04, "EXP_TIME_1"},
    {kReg.EXP_TIME_2, "IMAGE_BLOCK_0", 0x08, "EXP_TIME_2"},
    {kReg.EXP_TIME_3, "IMAGE_BLOCK_0", 0x0C, "EXP_TIME_3"},
    {kReg.EXP_TIME_4, "IMAGE_BLOCK_0", 0x10, "EXP_TIME_4"},
    {kReg.EXP_TIME_5, "IMAGE_BLOCK_0", 0x14, "EXP_TIME_5"},
    {kReg.EXPOSURE_NUM, "IMAGE_BLOCK_0", 0x18, "EXPOSURE_NUM"},
    {kReg.EXP_DELAY, "IMAGE_BLOCK_0", 0x1C, "EXP_DELAY"},
    {kReg.XTRIG_LOST_STA, "IMAGE_BLOCK_0", 0x20, "XTRIG_LOST_STA"},
    {kReg.CMOS_TIMING_CTRL, "IMAGE_BLOCK_0", 0x24, "CMOS_TIMING_CTRL"},
    {kReg.LASER_CTRL, "IMAGE_BLOCK_0", 0x28, "LASER_CTRL"},
    {kReg.SENSOR_TIMING, "IMAGE_BLOCK_0", 0x2C, "SENSOR_TIMING"},
    {kReg.LASER_OFFSET_TIME, "IMAGE_BLOCK_0", 0x30, "LASER_OFFSET_TIME"},
    {kReg.FPGA_VERSION, "IMAGE_BLOCK_0", 0x3C, "FPGA_VERSION"},
    {kReg.HDR_CTRL, "IMAGE_BLOCK_0", 0x40, "HDR_CTRL"},
    {kReg.HDR_SEG2, "IMAGE_BLOCK_0", 0x44, "HDR_SEG2"},
    {kReg.HDR_SEG3, "IMAGE_BLOCK_0", 0x48, "HDR_SEG3"},
    {kReg.HDR_GAP, "IMAGE_BLOCK_0", 0x4C, "HDR_GAP"},
    {kReg.HDR_TOTAL, "IMAGE_BLOCK_0", 0x50, "HDR_TOTAL"},

    {kReg.POLARITY, "IMAGE_BLOCK_1", 0x00, "POLARITY"},
    {kReg.TRIGGER_CTRL, "IMAGE_BLOCK_1", 0x04, "TRIGGER_CTRL"},
    {kReg.TRI_SPACING, "IMAGE_BLOCK_1", 0x08, "TRI_SPACING"},
    {kReg.TIMER_COUNTER_L, "IMAGE_BLOCK_1", 0x0C, "TIMER_COUNTER_L"},
    {kReg.TIMER_COUNTER_H, "IMAGE_BLOCK_1", 0x10, "TIMER_COUNTER_H"},
    {kReg.XTRIG_START_L, "IMAGE_BLOCK_1", 0x14, "XTRIG_START_L"},
    {kReg.XTRIG_START_H, "IMAGE_BLOCK_1", 0x18, "XTRIG_START_H"},
    {kReg.ENCODER_COUNTER_L, "IMAGE_BLOCK_1", 0x1C, "ENCODER_COUNTER_L"},
    {kReg.ENCODER_COUNTER_H, "IMAGE_BLOCK_1", 0x20, "ENCODER_COUNTER_H"},
    {kReg.ENCODER_FREQ, "IMAGE_BLOCK_1", 0x24, "ENCODER_FREQ"},
    {kReg.MASTER_CTRL, "IMAGE_BLOCK_1", 0x28, "MASTER_CTRL"},
    {kReg.IMG_FILTER_WIDTH, "IMAGE_BLOCK_1", 0x2C, "IMG_FILTER_WIDTH"},
    {kReg.IMG_FILTER_HEIGHT, "IMAGE_BLOCK_1", 0x30, "IMG_FILTER_HEIGHT"},
    {kReg.IMG_FILTER_THRS, "IMAGE_BLOCK_1", 0x34, "IMG_FILTER_THRS"},

    {kReg.STRIP_DELAY, "IMAGE_BLOCK_2", 0x08, "STRIP_DELAY"},

    {kReg.DO1_CTRL, "IMAGE_BLOCK_3", 0x00, "DO1_CTRL"},
    {kReg.DO2_CTRL, "IMAGE_BLOCK_3", 0x04, "DO2_CTRL"},
    {kReg.DO1_DELAY_L, "IMAGE_BLOCK_3", 0x08, "DO1_DELAY_L"},
    {kReg.DO1_DELAY_H, "IMAGE_BLOCK_3", 0x0C, "DO1_DELAY_H"},
    {kReg.DO2_DELAY_L, "IMAGE_BLOCK_3", 0x10, "DO2_DELAY_L"},
    {kReg.DO2_DELAY_H, "IMAGE_BLOCK_3", 0x14, "DO2_DELAY_H"},
    {kReg.REVERSE_CTRL, "IMAGE_BLOCK_3", 0x1C, "REVERSE_CTRL"},
    {kReg.TRI_DELAY, "IMAGE_BLOCK_3", 0x20, "TRI_DELAY"},
    {kReg.EXTIN_WIDTH, "IMAGE_BLOCK_3", 0x24, "EXTIN_WIDTH"},
    {kReg.IRQ_CTRL, "IMAGE_BLOCK_3", 0x28, "IRQ_CTRL"},
    {kReg.DA_OUTPUT_DELAY, "IMAGE_BLOCK_3", 0x2C, "DA_OUTPUT_DELAY"},
    {kReg.DO1_LOST_STA, "IMAGE_BLOCK_3", 0x30, "DO1_LOST_STA"},
    {kReg.DO2_LOST_STA, "IMAGE_BLOCK_3", 0x34, "DO2_LOST_STA"},
    {kReg.COMM_VERIFY_ERROR_STA, "IMAGE_BLOCK_3", 0x38, "COMM_VERIFY_ERROR_STA"},
    {kReg.EXT_TRIGGER_LEVEL, "IMAGE_BLOCK_3", 0x3C, "EXT_TRIGGER_LEVEL"},

    {kReg.STRIP_WRIMEM_STRATEGY, "REBUILD_BLOCK_0", 0x40, "STRIP_WRIMEM_STRATEGY"},
    {kReg.BR_CONT_MODE_A, "REBUILD_BLOCK_0", 0x48, "BR_CONT_MODE_A"},

    {kReg.RIS_THRESHOLD, "REBUILD_BLOCK_1", 0x00, "RIS_THRESHOLD"},
    {kReg.STRIP_WIDTH_MIN, "REBUILD_BLOCK_1", 0x04, "STRIP_WIDTH_MIN"},
    {kReg.STRIP_WIDTH_MAX, "REBUILD_BLOCK_1", 0x08, "STRIP_WIDTH_MAX"},
    {kReg.STRIP_IMAGE_WIDTH, "REBUILD_BLOCK_1", 0x0C, "STRIP_IMAGE_WIDTH"},
    {kReg.STRIP_IMAGE_HEIGHT, "REBUILD_BLOCK_1", 0x10, "STRIP_IMAGE_HEIGHT"},
    {kReg.BASE_THRESHOLD, "REBUILD_BLOCK_1", 0x14, "BASE_THRESHOLD"},

    {kReg.CALLBACK_LOST_RESET, "REBUILD_BLOCK_2", 0x08, "CALLBACK_LOST_RESET"},
    {kReg.CALLBACK_LOST_NUM, "REBUILD_BLOCK_2", 0x0C, "CALLBACK_LOST_NUM"},

    {kReg.COLLECT_MODE, "REBUILD_BLOCK_4", 0x00, "COLLECT_MODE"},
    {kReg.STRIP_DATA_MODE, "REBUILD_BLOCK_4", 0x04, "STRIP_DATA_MODE"},
    {kReg.FRAME_ID_RESET, "REBUILD_BLOCK_4", 0x08, "FRAME_ID_RESET"},
    {kReg.ISP_WIDTH, "REBUILD_BLOCK_4", 0x0C, "ISP_WIDTH"},
    {kReg.ISP_HEIGHT, "REBUILD_BLOCK_4", 0x10, "ISP_HEIGHT"},
    {kReg.ISP_CTRL, "REBUILD_BLOCK_4", 0x14, "ISP_CTRL"},
    {kReg.OB_OFFSET, "REBUILD_BLOCK_4", 0x18, "OB_OFFSET"},
    {kReg.BRI_THRES, "REBUILD_BLOCK_4", 0x1C, "BRI_THRES"},
    {kReg.ENHANCE_CTRL, "REBUILD_BLOCK_4", 0x20, "ENHANCE_CTRL"},
    {kReg.MEDIAN_CTRL, "REBUILD_BLOCK_4", 0x24, "MEDIAN_CTRL"},
    {kReg.EROSION_CTRL, "REBUILD_BLOCK_4", 0x28, "EROSION_CTRL"},
    {kReg.FPGA_CONTINUOUS, "REBUILD_BLOCK_4", 0x2C, "FPGA_CONTINUOUS"},

    {kReg.MEASURING_RANGE_START, "REBUILD_BLOCK_5", 0x4C, "MEASURING_RANGE_START"},
    {kReg.MEASURING_RANGE_END, "REBUILD_BLOCK_5", 0x50, "MEASURING_RANGE_END"},
    {kReg.ROI_OFFSET, "REBUILD_BLOCK_5", 0x54, "ROI_OFFSET"},
    {kReg.RECONSTRUCTION_START_X, "REBUILD_BLOCK_5", 0x58, "RECONSTRUCTION_START_X"},
    {kReg.RECONSTRUCTION_STEP_X, "REBUILD_BLOCK_5", 0x5C, "RECONSTRUCTION_STEP_X"},
    {kReg.RECONSTRUCTION_CNT_X, "REBUILD_BLOCK_5", 0x60, "RECONSTRUCTION_CNT_X"},
    {kReg.STRIP_WRIMEM_STRATEGY_WIDTH, "REBUILD_BLOCK_5", 0x64, "STRIP_WRIMEM_STRATEGY_WIDTH"},
    {kReg.SAMPLE_LINE_PARAM_4, "REBUILD_BLOCK_5", 0x68, "SAMPLE_LINE_PARAM_4"},
    {kReg.SAMPLE_LINE_PARAM_5, "REBUILD_BLOCK_5", 0x6C, "SAMPLE_LINE_PARAM_5"},
    {kReg.BR_CONT_MODE_B, "REBUILD_BLOCK_5", 0x78, "BR_CONT_MODE_B"},

    {kReg.STRIP_SELECTOR_IMAGE_WIDTH, "REBUILD_BLOCK_6", 0x10, "STRIP_SELECTOR_IMAGE_WIDTH"},
};

// Registers that come in rows: the first one, then `count` registers in steps of 4.
struct RegisterRow {
  Register (*at)(std::size_t);
  std::string_view block;
  std::uint32_t first_offset;
  std::size_t first;
  std::size_t count;
  std::string name;  // the name without the number
};

const std::vector<RegisterRow> kRegisterRows{
    {[](std::size_t i) { return StreamSwitchPort(Block::kImage2, i); }, "IMAGE_BLOCK_2", 0x40, 0,
     16, "STREAM_SWITCH_PORT_"},
    {[](std::size_t i) { return StreamSwitchPort(Block::kImage4, i); }, "IMAGE_BLOCK_4", 0x40, 0,
     16, "STREAM_SWITCH_PORT_"},
    {StripRebuild, "REBUILD_BLOCK_5", 0x00, 0, 19, "STRIP_REBUILD_"},
    {StripRebuild, "REBUILD_BLOCK_5", 0x70, 19, 2, "STRIP_REBUILD_"},
};

void ExpectAt(const Register& reg, std::string_view block, std::uint32_t offset,
              std::string_view name) {
  EXPECT_EQ(reg.name.View(), name);
  EXPECT_EQ(Info(reg.block).name, block) << name;
  EXPECT_EQ(reg.offset, offset) << name;
  EXPECT_EQ(reg.Index(), offset / 4) << name;
  const Register* found = FindRegister(reg.block, offset);
  ASSERT_NE(found, nullptr) << name;
  EXPECT_EQ(found->name, name);
}

TEST(RegisterMap, HasEveryRegisterAtItsOffset) {
  std::size_t count = 0;
  for (const auto& [reg, block, offset, name] : kRegisterPlaces) {
    ExpectAt(reg, block, offset, name);
    ++count;
  }
  for (const RegisterRow& row : kRegisterRows) {
    for (std::size_t i = 0; i < row.count; ++i) {
      const std::size_t number = row.first + i;
      ExpectAt(row.at(number), row.block, row.first_offset + 4 * static_cast<std::uint32_t>(i),
               row.name + std::to_string(number));
      ++count;
    }
  }
  ExpectAt(StreamSwitchControl(Block::kImage2), "IMAGE_BLOCK_2", 0x00, "STREAM_SWITCH_CTRL");
  ExpectAt(StreamSwitchControl(Block::kImage4), "IMAGE_BLOCK_4", 0x00, "STREAM_SWITCH_CTRL");
  EXPECT_EQ(kAllRegisters.size(), count + 2);
}

TEST(RegisterMap, HasOneRegisterAPlace) {
  std::set<std::pair<Block, std::uint32_t>> places;
  for (const Register& reg : kAllRegisters) {
    EXPECT_TRUE(places.emplace(reg.block, reg.offset).second) << reg.name.View();
  }
}

// --- The addresses that cross the boundary ------------------------------------------------

// Makes one access to every block.
void TouchEveryBlock(FpgaLogic& f) {
  f.GetLaserMode();
  f.GetPolarity();
  f.GetStripDelay();
  f.GetReverseMode();
  f.SetStripWriteMemMode(SampleStrategy{});
  f.GetRisThresholdValue();
  f.GetCallbackLostNum();
  f.SetObOffset(0);
  f.SetStripSelectorImgWidth(0);
}

// The addresses of the accesses, in the order of the calls.
std::vector<std::string> Addresses(const std::function<void()>& calls) {
  const LoggedLines lines(TESSALINE_LOG_TRACE);
  calls();
  std::vector<std::string> addresses;
  for (const std::string& line : lines.Take()) {
    const std::size_t at = line.find("_addr: ");
    if (at != std::string::npos) addresses.push_back(line.substr(at + 7));
  }
  return addresses;
}

TEST_F(ZynqFpga, EveryBlockIsAccessedAtItsAddress) {
  EXPECT_THAT(Addresses([] { TouchEveryBlock(logic()); }),
              ElementsAre("43c00028", "43c10000", "43c20008", "43c3001c", "83c00040", "83c50064",
                          "83c10000", "83c2000c", "83c40018", "83c60010"));
}

TEST_F(ZynqMpFpga, EveryBlockIsAccessedAtItsAddress) {
  EXPECT_THAT(Addresses([] { TouchEveryBlock(logic()); }),
              ElementsAre("a0000028", "a0010000", "a0020008", "a003001c", "b0000040", "b0050064",
                          "b0010000", "b002000c", "b0040018", "b0060010"));
}

TEST_F(ZynqFpga, TheSecondStreamSwitchIsAccessedAtItsAddress) {
  const auto addresses = Addresses([] { logic().SetCollectMode(kCollectImage); });
  EXPECT_THAT(addresses, ElementsAre("43c20040", "43c20044", "83c40000", "43c40040", "43c00018",
                                     "43c00018", "43c20000", "43c40000"));
}

TEST_F(ZynqMpFpga, TheSecondStreamSwitchIsAccessedAtItsAddress) {
  const auto addresses = Addresses([] { logic().SetCollectMode(kCollectImage); });
  EXPECT_THAT(addresses, ElementsAre("a0020040", "a0020044", "b0040000", "a0040040", "a0000018",
                                     "a0000018", "a0020000", "a0040000"));
}

}  // namespace
}  // namespace tessaline_test
