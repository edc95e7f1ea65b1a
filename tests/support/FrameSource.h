#pragma once

#include "support/BoardFixture.h"
#include "tessaline/fpga.h"

namespace tessaline_test {

// Makes the FPGA of a selected K36 board produce frames without the start-up of
// the library: full sensor, one trigger for every free buffer.
class FrameSource {
 public:
  static constexpr unsigned kWidth = 1456;
  static constexpr unsigned kHeight = 1088;

  enum Stream { kImages, kStrips };

  static void Prepare() {
    tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
    tessaline_board_chip_set("sensor", 0x3000, 0);  // out of standby
    Set(fpga::CMOS_WORK_MODE, 3);
    Set(fpga::CMOS_TIMING_CTRL, fpga::kTimingFirst.Mask() | fpga::kTimingSecond.Mask());
    Set(fpga::TRI_SPACING, 200000);
    SetRegion(kWidth, kHeight);
  }

  static void SetRegion(unsigned width, unsigned height) {
    Set(fpga::STRIP_IMAGE_WIDTH, width);
    Set(fpga::STRIP_IMAGE_HEIGHT, height);
  }

  static void Route(Stream stream) {
    using fpga::Block;
    const bool images = stream == kImages;
    Write(fpga::StreamSwitchPort(Block::kImage2, 0), images ? fpga::kStreamSwitchPortOff : 0);
    Write(fpga::StreamSwitchPort(Block::kImage2, 1), images ? 0 : fpga::kStreamSwitchPortOff);
    Write(fpga::StreamSwitchPort(Block::kImage4, 0), images ? 1 : 0);
    Write(fpga::StreamSwitchControl(Block::kImage2), fpga::kStreamSwitchCommit);
    Write(fpga::StreamSwitchControl(Block::kImage4), fpga::kStreamSwitchCommit);
  }

  static void Trigger(bool on) { Write(fpga::TRIGGER_CTRL, on ? fpga::kGlobalControl.Mask() : 0); }

 private:
  static void Set(const fpga::Register& reg, std::uint32_t value) {
    tessaline_board_register_set(static_cast<unsigned>(reg.block), reg.offset, value);
  }
  // The way of software, with all that a write sets off.
  static void Write(const fpga::Register& reg, std::uint32_t value) {
    ASSERT_EQ(fpga_write_addr(fpga::BaseAddress(reg.block, fpga::kZynqRegions), reg.Index(), value),
              0u);
  }
};

}  // namespace tessaline_test
