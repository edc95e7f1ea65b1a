#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/BoardFixture.h"

namespace tessaline_test {

// Makes the FPGA of a selected board produce frames without the library's start-up, one for every
// free buffer.
class FrameSource {
 public:
  // Size of a K36's sensor.
  static constexpr unsigned kWidth = 1456;
  static constexpr unsigned kHeight = 1088;

  enum Stream { kImages, kStrips };

  // A K36, with its full sensor.
  static void Prepare() {
    tessaline_board_chip_set("sensor", 0x3000, 0);  // out of standby
    SetRegion(kWidth, kHeight);
    Arm();
  }

  // Everything but sensor and trigger.
  static void Arm() {
    tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
    Set(fpga::kReg.CMOS_WORK_MODE, 3);
    Set(fpga::kReg.CMOS_TIMING_CTRL,
        fpga::kField.timing_first.Mask() | fpga::kField.timing_second.Mask());
    Set(fpga::kReg.TRI_SPACING, 200000);
  }

  static void SetRegion(unsigned width, unsigned height) {
    Set(fpga::kReg.STRIP_IMAGE_WIDTH, width);
    Set(fpga::kReg.STRIP_IMAGE_HEIGHT, height);
  }

  static void Route(Stream stream, fpga::RegionBases regions = fpga::kZynqRegions) {
    using fpga::Block;
    const bool images = stream == kImages;
    const auto write = [&](const fpga::Register& reg, std::uint32_t value) {
      Write(reg, value, regions);
    };
    write(fpga::StreamSwitchPort(Block::kImage2, 0), images ? fpga::kStreamSwitchPortOff : 0);
    write(fpga::StreamSwitchPort(Block::kImage2, 1), images ? 0 : fpga::kStreamSwitchPortOff);
    write(fpga::StreamSwitchPort(Block::kImage4, 0), images ? 1 : 0);
    write(fpga::StreamSwitchControl(Block::kImage2), fpga::kStreamSwitchCommit);
    write(fpga::StreamSwitchControl(Block::kImage4), fpga::kStreamSwitchCommit);
  }

  static void Trigger(bool on) {
    Write(fpga::kReg.TRIGGER_CTRL, on ? fpga::kField.global_control.Mask() : 0);
  }

  // Writes as software does, with everything that a write triggers.
  static void Write(const fpga::Register& reg, std::uint32_t value,
                    fpga::RegionBases regions = fpga::kZynqRegions) {
    const int memory = open("/dev/mem", O_RDWR);
    void* const block = mmap(nullptr, 255, PROT_READ | PROT_WRITE, MAP_SHARED, memory,
                             fpga::BaseAddress(reg.block, regions));
    ASSERT_NE(block, MAP_FAILED);
    static_cast<volatile std::uint32_t*>(block)[reg.Index()] = value;
    munmap(block, 255);
    close(memory);
  }

 private:
  static void Set(const fpga::Register& reg, std::uint32_t value) {
    tessaline_board_register_set(static_cast<unsigned>(reg.block), reg.offset, value);
  }
};

}  // namespace tessaline_test
