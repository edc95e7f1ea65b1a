#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <span>
#include <vector>

#include "api/Products.h"
#include "api/SelfTestImage.h"
#include "support/BoardFixture.h"
#include "support/Waiting.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

// The laser line in one frame, from an image or a strip.
struct Sighting {
  struct Point {
    unsigned column;
    double row;
    int peak;  // negative: the frame has no brightness
  };
  tessaline_strip_header header;   // of an image without the number of points
  unsigned width = 0, height = 0;  // of an image
  std::vector<unsigned> columns;   // that were examined
  std::vector<Point> points;       // those with a line
};

// Handlers reduce frames to these.
class Sightings {
 public:
  static constexpr unsigned kEveryColumn = 7;  // of an image; not in step with its blocks
  static constexpr double kFullSteps = TESSALINE_FULL_ROW_STEPS;
  static constexpr double kShortSteps = TESSALINE_SHORT_ROW_STEPS;
  static constexpr int kDark = 40;  // no line is this dark, no noise this bright

  static void BytesPerPoint(unsigned bytes) { bytes_per_point_ = bytes; }

  static std::vector<Sighting> All() {
    const std::lock_guard lock(mutex_);
    return seen_;
  }
  static std::size_t Count() {
    const std::lock_guard lock(mutex_);
    return seen_.size();
  }
  // Forgets all, including frames still on their way at this moment.
  static void Clear() {
    const std::uint64_t now = GetTimerCounter();
    const std::lock_guard lock(mutex_);
    seen_.clear();
    since_ = now;
  }

  static void OnImage(unsigned width, unsigned height, void* data) {
    const auto* pixels = static_cast<const std::uint8_t*>(data);
    Sighting sighting{};
    tessaline_image_header header;
    std::memcpy(&header, pixels + std::size_t{width} * height, sizeof header);
    sighting.header = {header.frame_id, header.time_stamp, header.encoder_stamp, 0};
    sighting.width = width;
    sighting.height = height;
    std::vector<unsigned> brightest(width);
    for (unsigned y = 1; y < height; ++y) {
      const std::uint8_t* row = pixels + std::size_t{y} * width;
      for (unsigned x = 0; x < width; x += kEveryColumn) {
        if (row[x] > pixels[std::size_t{brightest[x]} * width + x]) brightest[x] = y;
      }
    }
    for (unsigned x = 0; x < width; x += kEveryColumn) {
      sighting.columns.push_back(x);
      const int peak = pixels[std::size_t{brightest[x]} * width + x];
      if (peak < kDark) continue;
      sighting.points.push_back({x, Middle(pixels + x, width, height, brightest[x]), peak});
    }
    Keep(std::move(sighting));
    SelfTestImage::Handled();
  }

  static void OnStrips(unsigned strips, unsigned bytes, void* data) {
    std::span<const std::uint8_t> rest(static_cast<const std::uint8_t*>(data), bytes);
    for (unsigned i = 0; i < strips; ++i) {
      Sighting sighting{};
      ASSERT_GE(rest.size(), sizeof sighting.header);
      std::memcpy(&sighting.header, rest.data(), sizeof sighting.header);
      rest = rest.subspan(sizeof sighting.header);
      const std::uint64_t points = sighting.header.point_count;
      ASSERT_LE(points * bytes_per_point_, rest.size());
      TakePoints(rest.first(points * bytes_per_point_), sighting);
      rest = rest.subspan(points * bytes_per_point_);
      Keep(std::move(sighting));
    }
    EXPECT_TRUE(rest.empty()) << "more bytes than strips";
  }

 private:
  // Centre of the light around the brightest row.
  static double Middle(const std::uint8_t* column, unsigned width, unsigned height, unsigned row) {
    constexpr int kReach = 6;
    constexpr double kDarkNoise = 7;
    double light = 0;
    double moment = 0;
    for (int y = static_cast<int>(row) - kReach; y <= static_cast<int>(row) + kReach; ++y) {
      if (y < 0 || y >= static_cast<int>(height)) continue;
      const double grey = column[static_cast<std::size_t>(y) * width] - kDarkNoise;
      light += grey;
      moment += grey * y;
    }
    return moment / light;
  }

  template <typename Record>
  static Record First(std::span<const std::uint8_t> bytes) {
    Record record{};
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
  }

  static void TakePoints(std::span<const std::uint8_t> bytes, Sighting& sighting) {
    const unsigned size = bytes_per_point_;
    unsigned place = 0;
    for (; bytes.size() >= size; bytes = bytes.subspan(size), ++place) {
      if (size == sizeof(tessaline_row_point)) {
        const auto point = First<tessaline_row_point>(bytes);
        if (point.row != TESSALINE_NO_LINE) {
          sighting.points.push_back({place, point.row / kShortSteps, -1});
        }
        sighting.columns.push_back(place);
      } else if (size == sizeof(tessaline_short_point)) {
        const auto point = First<tessaline_short_point>(bytes);
        sighting.points.push_back({point.column, point.row / kShortSteps, -1});
      } else {
        const auto point = First<tessaline_full_point>(bytes);
        sighting.points.push_back({point.column, point.row / kFullSteps, point.peak});
      }
    }
  }

  static void Keep(Sighting sighting) {
    const std::lock_guard lock(mutex_);
    if (sighting.header.time_stamp > since_) seen_.push_back(std::move(sighting));
  }

  // Never destroyed: the handlers may run until the process ends.
  static inline std::mutex& mutex_ = *new std::mutex;
  static inline std::vector<Sighting>& seen_ = *new std::vector<Sighting>;
  static inline std::uint64_t since_ = 0;
  static inline std::atomic<unsigned> bytes_per_point_{8};
};

// A started application on the board of any product. The laser is on, and only software triggers it
// until a test says otherwise.
class SeriesRun : public BoardFixture, public ::testing::WithParamInterface<Product> {
 protected:
  enum Mode : unsigned { kStrips, kImages };
  static constexpr unsigned kExposure = 250;  // microseconds; saturates nothing
  static constexpr float kLaserPercent = 50;

  SeriesRun() : BoardFixture(GetParam().model) {}

  void SetUp() override {
    BoardFixture::SetUp();
    tessaline_board_transcript_enable(0);
    ASSERT_EQ(GetLibVersion(product().model), 41915);
    log_set_quiet(true);
    RegisterEventHandler(TESSALINE_EVENT_IMAGE,
                         reinterpret_cast<tessaline_event_handler>(Sightings::OnImage));
    RegisterEventHandler(TESSALINE_EVENT_STRIP,
                         reinterpret_cast<tessaline_event_handler>(Sightings::OnStrips));
    {
      const SelfTestImage tried_out(product().model);
      ASSERT_EQ(RegisterHardwareInit(), 0);
    }
    tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
    tessaline_board_set_strips_per_buffer(1);
    Sightings::BytesPerPoint(product().bytes_per_point);
    ASSERT_EQ(SetTriMode(2), 0);
    ASSERT_EQ(SetExposureTime(1, kExposure), 0);
    ASSERT_EQ(SetLaserPower(kLaserPercent), 0);
    ASSERT_EQ(OpenLaser(), 0);
    Sightings::Clear();
  }

  static const Product& product() { return GetParam(); }

  // After start-up, one product's region misses the line.
  static void ShowTheWholeScene() {
    const Product& p = product();
    if (p.at_start.height == p.all_pixels.height) return;
    ASSERT_EQ(SetDriveMode(0), 0);
  }

  // --- Frames

  // One frame, exposed while ball and stairs are under the line. Empty when none arrived.
  static Sighting Snapshot(Mode mode) {
    constexpr int kTries = 20;
    for (int i = 0; i < kTries; ++i) {
      Sighting sighting = OneFrame(mode);
      const double y = std::fmod(BeltAt(sighting.header.time_stamp), kPeriod);
      // A busy machine may be so late that they have passed.
      if (sighting.header.frame_id == 0 || (y > 11 && y < 39)) return sighting;
    }
    ADD_FAILURE() << "ball and stairs were never under the line";
    return {};
  }

  static Sighting OneFrame(Mode mode) {
    EXPECT_EQ(SetCollectMode(mode), 0);
    MoveBeltTo(20);
    Sightings::Clear();
    SetGlobalControl(1);
    TricontrolSWTrigger();
    EXPECT_TRUE(Eventually([] { return Sightings::Count() > 0; })) << "no frame";
    SetGlobalControl(0);
    const auto all = Sightings::All();
    return all.empty() ? Sighting{} : all[0];
  }

  static struct tessaline_board_stream_stats Stats(Mode mode) {
    struct tessaline_board_stream_stats stats {};
    tessaline_board_stream_stats(mode == kImages ? 0 : 1, &stats);
    return stats;
  }

  // --- The scene

  static constexpr double kSpeed = 50;    // mm/s
  static constexpr double kPeriod = 120;  // mm, after which the objects repeat
  static constexpr double kBeltReflectance = 0.45;
  static constexpr double kObjectReflectance = 0.75;  // of ball and stairs

  static double BeltAt(std::uint64_t time_stamp) {
    return static_cast<double>(time_stamp) * fpga::kNanosecondsPerTick * 1e-9 * kSpeed;
  }

  // The belt moves during sleeps.
  static void MoveBeltTo(double along) {
    const double way = along - std::fmod(BeltAt(GetTimerCounter()), kPeriod);
    usleep(static_cast<useconds_t>((way < 0 ? way + kPeriod : way) / kSpeed * 1e6));
  }

  struct Place {
    double row;  // in the frame; may lie outside
    double reflectance;
  };
  static Place LineIn(const View& view, unsigned column, double belt) {
    const Product& p = product();
    unsigned on_sensor = view.left + column * view.column_step;
    if (view.flip_x) on_sensor = p.full_width - 1 - on_sensor;
    const double height = tessaline_board_scene_height(tessaline_board_scene_x(on_sensor), belt);
    double row = tessaline_board_scene_row(height);
    if (view.flip_y) row = p.full_height - 1 - row;
    return {(row - view.top) / view.row_step, height > 0 ? kObjectReflectance : kBeltReflectance};
  }

  // Grey value of the line on a white surface.
  static double Light(double exposure, double gain = 1) {
    constexpr double kGreyPerMicrosecond = 1.1;  // at half of the laser's power
    return 2 * PowerAt(kLaserPercent) * kGreyPerMicrosecond * Steps(exposure) *
           product().exposure_step * gain;
  }
  // As a fraction. The finer potentiometer is never turned beyond 1000.
  static double PowerAt(double percent) {
    const unsigned last = product().pot_steps - 1;
    const double code = std::floor(last * percent / 100);
    return (product().pot_steps == 1024 ? std::min(code, 1000.0) : code) / last;
  }
  static unsigned Steps(double exposure) {
    return static_cast<unsigned>(std::ceil(static_cast<float>(exposure) / product().exposure_unit));
  }

  static constexpr double kAnyLight = -1;

  // Expects the line in every column where the scene has it, as bright as the light is, and nowhere
  // else. Returns the number of columns with the line.
  static unsigned ExpectLine(const Sighting& sighting, const View& view, double light = kAnyLight) {
    const bool image = sighting.width != 0;
    if (image) {
      EXPECT_EQ(sighting.width, view.width);
      EXPECT_EQ(sighting.height, view.height);
    }
    std::vector<const Sighting::Point*> points(view.width);
    for (const auto& point : sighting.points) {
      if (point.column >= view.width || points[point.column] != nullptr) {
        ADD_FAILURE() << "a point in column " << point.column;
        return 0;
      }
      points[point.column] = &point;
    }
    const double belt = BeltAt(sighting.header.time_stamp);
    unsigned seen = 0;
    unsigned wrong = 0;
    const auto complain = [&](unsigned column, const std::string& what) {
      constexpr unsigned kEnough = 5;
      if (++wrong <= kEnough) ADD_FAILURE() << "column " << column << ": " << what;
    };
    for (unsigned x = 0; x < view.width; x += image ? Sightings::kEveryColumn : 1) {
      const Place line = LineIn(view, x, belt);
      if (Unclear(line.row, view.height, image)) continue;
      const bool inside = line.row > 0 && line.row < view.height - 1.0;
      const auto* point = points[x];
      if (inside) ++seen;
      if (inside != (point != nullptr)) complain(x, inside ? "no line" : "a line");
      if (point == nullptr) continue;
      // The line's centre is estimated in an image; a strip's row is counted in 1/32 or less.
      if (std::abs(point->row - line.row) > (image ? 0.5 : 0.02)) {
        complain(x, "row " + std::to_string(point->row) + ", not " + std::to_string(line.row));
      }
      if (light == kAnyLight || point->peak < 0) continue;
      double grey = std::min(255.0, light * line.reflectance);
      if (image) grey = InPixels(grey, line.row);
      if (std::abs(point->peak - grey) > (image ? 8 : 1.01)) {
        complain(x, "grey " + std::to_string(point->peak) + ", not " + std::to_string(grey));
      }
    }
    EXPECT_EQ(wrong, 0u) << "columns";
    return seen;
  }

  // The same, when most of the line is in view.
  static void ExpectScene(const Sighting& sighting, const View& view, double light = kAnyLight) {
    EXPECT_GT(ExpectLine(sighting, view, light), ColumnsLookedAt(sighting, view) / 2);
  }

  // In a strip and in an image.
  static void ExpectSceneInBoth(const View& view, double light = kAnyLight) {
    {
      SCOPED_TRACE("strip");
      ExpectScene(Snapshot(kStrips), view, light);
    }
    SCOPED_TRACE("image");
    ExpectScene(Snapshot(kImages), view, light);
  }

  static unsigned ColumnsLookedAt(const Sighting& sighting, const View& view) {
    return sighting.width == 0 ? view.width : view.width / Sightings::kEveryColumn;
  }

 private:
  // Whether the line is so near the frame's edge that it may or may not be visible.
  static bool Unclear(double row, unsigned height, bool image) {
    const double margin = image ? 8 : 0.05;
    return std::abs(row) < margin || std::abs(row - (height - 1.0)) < margin;
  }

  // The brightest pixel of a line with this grey value, noise included.
  static double InPixels(double grey, double row) {
    constexpr double kLineSigma = 1.8;
    constexpr double kDarkNoise = 7;
    const double away = (row - std::round(row)) / kLineSigma;
    return std::min(255.0, grey * std::exp(-0.5 * away * away) + kDarkNoise);
  }
};

inline std::string ModelOf(const ::testing::TestParamInfo<Product>& row) { return row.param.model; }

}  // namespace tessaline_test
