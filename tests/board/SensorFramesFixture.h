// Effects of the image sensors' registers on the frames, seen by a plain capture program.
#pragma once

#include <cmath>
#include <map>
#include <set>
#include <vector>

#include "FramesFixture.h"

namespace board_test {

using Registers = std::map<unsigned, unsigned>;

// The frame's place on the full sensor.
struct View {
  unsigned full_width, full_height;
  unsigned width, height;
  unsigned left = 0, top = 0;
  unsigned column_step = 1, row_step = 1;
  bool flip_x = false, flip_y = false;
};

class SensorFrames : public FramesFixture {
 protected:
  using FramesFixture::FramesFixture;

  static void SetSensor(const Registers& registers) {
    for (const auto& [address, value] : registers) {
      ASSERT_EQ(tessaline_board_chip_set("sensor", address, value), 0);
    }
  }

  static void SetSize(unsigned width, unsigned height) {
    Set(fpga::kReg.STRIP_IMAGE_WIDTH, width);
    Set(fpga::kReg.STRIP_IMAGE_HEIGHT, height);
  }

  // A strip buffer of a new stream, with one strip, taken with the sensor's present settings: older
  // buffers may be left over from before.
  std::vector<std::uint8_t> FreshStrip() {
    tessaline_board_set_strips_per_buffer(1);
    RouteTo(false);
    VideoClient client("/dev/video1");
    client.Start(1024, 640, 2);
    TriggerOn();
    client.Dequeue();
    client.Requeue();
    const auto bytes = client.Dequeue();
    const std::vector<std::uint8_t> strip(bytes.begin(), bytes.end());
    Write(fpga::kReg.TRIGGER_CTRL, 0);
    return strip;
  }

  static bool IsStraight(std::span<const std::uint8_t> bytes) {
    const StripHeader header = HeaderAt(bytes, 0);
    std::set<std::uint32_t> rows;
    for (std::uint64_t i = 0; i < header.point_count; ++i) {
      rows.insert(PointAt(bytes, sizeof header + i * sizeof(StripPoint)).row);
    }
    return rows.size() < 2;
  }

  // A strip in which the line is not straight: over the bare belt all columns look the same.
  std::vector<std::uint8_t> StripOverAnObject() {
    constexpr useconds_t kTwentyMillimetres = 400'000;
    constexpr int kTwoRounds = 12;
    for (int i = 0; i < kTwoRounds; ++i) {
      usleep(kTwentyMillimetres);  // moves the belt without real waiting
      auto bytes = FreshStrip();
      if (!IsStraight(bytes)) return bytes;
    }
    ADD_FAILURE() << "no object came by";
    return FreshStrip();
  }

  // Every column that sees the line has it where the scene puts it.
  void ExpectScene(const View& view) {
    const auto bytes = StripOverAnObject();
    const StripHeader header = HeaderAt(bytes, 0);
    const double y = BeltPosition(header.time_stamp);
    std::vector<double> rows(view.width, -1);
    for (std::uint64_t i = 0; i < header.point_count; ++i) {
      const StripPoint point = PointAt(bytes, sizeof header + i * sizeof(StripPoint));
      ASSERT_LT(point.column, view.width);
      rows[point.column] = point.row / 65536.0;
    }
    unsigned seen = 0;
    for (unsigned column = 0; column < view.width; ++column) {
      double expected = RowOf(view, column, y);
      if (expected > view.height - 1.0) expected = -1;
      if (expected < 0) {
        ASSERT_LT(rows[column], 0) << "column " << column;
        continue;
      }
      ++seen;
      ASSERT_NEAR(rows[column], expected, 0.01) << "column " << column;
    }
    EXPECT_GT(seen, view.width / 3);
  }

  static double RowOf(const View& view, unsigned column, double y) {
    unsigned on_sensor = view.left + column * view.column_step;
    if (on_sensor >= view.full_width) return -1;
    if (view.flip_x) on_sensor = view.full_width - 1 - on_sensor;
    double row = tessaline_board_scene_row(
        tessaline_board_scene_height(tessaline_board_scene_x(on_sensor), y));
    if (view.flip_y) row = view.full_height - 1 - row;
    return (row - view.top) / view.row_step;
  }

  // The time between frames when triggers come faster than the sensor.
  void ExpectFramePeriod(double microseconds) {
    const double ticks = microseconds * fpga::kTicksPerMicrosecond;
    const double spacing = std::floor(ticks / 50);
    Set(fpga::kReg.TRI_SPACING, static_cast<std::uint32_t>(spacing));
    tessaline_board_set_strips_per_buffer(2);
    RouteTo(false);
    VideoClient client("/dev/video1");
    client.Start(1024, 640, 2);
    TriggerOn();
    const auto bytes = client.Dequeue();
    const StripHeader first = HeaderAt(bytes, 0);
    const StripHeader second =
        HeaderAt(bytes, sizeof first + first.point_count * sizeof(StripPoint));
    const auto period = static_cast<double>(second.time_stamp - first.time_stamp);
    EXPECT_GE(period, ticks - 1);
    EXPECT_LE(period, ticks + spacing + 1);
  }

  // Whether a frame arrives within some real time.
  bool Arrives() {
    RouteTo(false);
    VideoClient client("/dev/video1", O_RDWR | O_NONBLOCK);
    client.Start(1024, 640, 2);
    TriggerOn();
    tessaline_board_set_sleep_factor(1);
    for (int i = 0; i < 150; ++i) {
      if (!client.Dequeue().empty()) return true;
      usleep(1000);
    }
    return false;
  }

  // The brightest point of the first strip.
  unsigned Brightest() {
    const auto bytes = FreshStrip();
    const StripHeader header = HeaderAt(bytes, 0);
    unsigned brightest = 0;
    for (std::uint64_t i = 0; i < header.point_count; ++i) {
      brightest = std::max<unsigned>(brightest,
                                     PointAt(bytes, sizeof header + i * sizeof(StripPoint)).peak);
    }
    return brightest;
  }
};

}  // namespace board_test
