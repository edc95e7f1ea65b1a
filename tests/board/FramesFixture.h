#pragma once

#include <cmath>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "board/BoardFixture.h"
#include "board/VideoClient.h"
#include "support/BoardFixture.h"
#include "support/FrameSource.h"
#include "tessaline/frames.h"

namespace board_test {

namespace fpga = VeltranoSDK::fpga;

// --- A strip, as it lies in the buffer -----------------------------------------------------

// The board writes records of its own, so each is a witness of the other.
using StripHeader = tessaline_strip_header;
using StripPoint = tessaline_full_point;

inline StripHeader HeaderAt(std::span<const std::uint8_t> bytes, std::size_t at) {
  StripHeader header{};
  std::memcpy(&header, &bytes[at], sizeof header);
  return header;
}

inline StripPoint PointAt(std::span<const std::uint8_t> bytes, std::size_t at) {
  StripPoint point{};
  std::memcpy(&point, &bytes[at], sizeof point);
  return point;
}

inline std::uint32_t CountIn(std::span<const std::uint8_t> buffer) {
  std::uint32_t count = 0;
  std::memcpy(&count, &buffer[buffer.size() - 8], sizeof count);
  return count;
}

// The belt's position at a time stamp: ticks of 20 ns, 50 mm/s.
inline double BeltPosition(std::uint64_t time_stamp) {
  return static_cast<double>(time_stamp) * 20e-9 * 50;
}

// A board with its laser on and everything armed except the sensor and the trigger, for plain
// capture programs that program FPGA and sensor themselves.
class FramesFixture : public tessaline_test::BoardFixture {
 protected:
  FramesFixture(const char* model, std::vector<const char*> laser_lines, fpga::RegionBases regions)
      : BoardFixture(model), laser_lines_(std::move(laser_lines)), regions_(regions) {}

  void SetUp() override {
    BoardFixture::SetUp();
    tessaline_board_transcript_enable(0);
    SwitchLaserOn();
    tessaline_test::FrameSource::Arm();
  }

  void SwitchLaserOn() const {
    for (const char* line : laser_lines_) {
      WriteFile("/sys/class/gpio/export", line);
      const std::string base = std::string("/sys/class/gpio/gpio") + line;
      WriteFile(base + "/direction", "out");
      WriteFile(base + "/value", "1");
    }
  }

  void Write(const fpga::Register& reg, std::uint32_t value) const {
    tessaline_test::FrameSource::Write(reg, value, regions_);
  }

  void RouteTo(bool images) const {
    using tessaline_test::FrameSource;
    FrameSource::Route(images ? FrameSource::kImages : FrameSource::kStrips, regions_);
  }

  void TriggerOn(std::uint32_t mode = 0) const {
    Write(fpga::kReg.TRIGGER_CTRL, fpga::kField.global_control.Mask() | mode);
  }

  static struct tessaline_board_stream_stats Stats(int stream) {
    struct tessaline_board_stream_stats stats {};
    tessaline_board_stream_stats(stream, &stats);
    return stats;
  }

 private:
  const std::vector<const char*> laser_lines_;
  const fpga::RegionBases regions_;
};

}  // namespace board_test
