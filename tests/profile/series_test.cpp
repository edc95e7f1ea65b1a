// What every product sees of the virtual board's scene, in millimetres: whatever part of the
// sensor is read out, and however.
#include "api/SeriesRun.h"
#include "profile/StripBytes.h"

namespace {

using profile_test::Arrays;
using tessaline_test::AllProducts;
using tessaline_test::DriveMode;
using tessaline_test::Eventually;
using tessaline_test::ModelOf;
using tessaline_test::Product;
using tessaline_test::Region;
using tessaline_test::SeriesRun;
using tessaline_test::View;
using tessaline_test::products::kDone;

// The bytes that the strip handler got last.
struct Received {
  std::mutex mutex;
  unsigned strips = 0;
  std::vector<unsigned char> bytes;
};
// Never destroyed: the handler may run to the very end.
Received& received = *new Received;

void OnStrips(unsigned strips, unsigned bytes, void* data) {
  const std::lock_guard lock(received.mutex);
  const auto* const first = static_cast<const unsigned char*>(data);
  received.strips = strips;
  received.bytes.assign(first, first + bytes);
}

tessaline_geometry GeometryOf(const Product& product, const View& view) {
  return {product.full_width, product.full_height, view.left,   view.top,
          view.column_step,   view.row_step,       view.flip_x, view.flip_y};
}

// The virtual board's optics: x = (column - W/2) 72.8 mm / W, z = (0.75 - row / H) 40 mm.
tessaline_calibration IdealOptics(const Product& product) {
  const double width = product.full_width;
  const double height = product.full_height;
  const double unit = width / 2;
  return {.sensor_width = width,
          .sensor_height = height,
          .centre_column = width / 2,
          .centre_row = height / 2,
          .pixels_per_unit = unit,
          .distortion = {0, 0, 0},
          .plane = {36.4, 0, 0, 0, -40 * unit / height, 10, 0, 0, 1},
          .column_sigma = 0,
          .row_sigma = 1 / 32.0,
          .x_sigma = 0,
          .z_sigma = 0,
          .field_corners = 0,
          .field = {}};
}

class SeriesInMillimetres : public SeriesRun {
 protected:
  void SetUp() override {
    SeriesRun::SetUp();
    RegisterEventHandler(TESSALINE_EVENT_STRIP,
                         reinterpret_cast<tessaline_event_handler>(OnStrips));
    ShowTheWholeScene();
  }

  // One strip, exposed while ball and stairs lie under the line.
  static double Take(unsigned point_bytes, const tessaline_geometry& geometry, Arrays& arrays,
                     tessaline_profile& profile) {
    constexpr int kTries = 20;
    for (int i = 0; i < kTries; ++i) {
      EXPECT_EQ(SetCollectMode(kStrips), 0);
      MoveBeltTo(20);
      const std::uint64_t since = GetTimerCounter();
      SetGlobalControl(1);
      TricontrolSWTrigger();
      const bool came = Eventually([&] {
        const std::lock_guard lock(received.mutex);
        tessaline_strips strips{};
        EXPECT_EQ(tessaline_strips_begin(&strips, received.bytes.data(), received.bytes.size(),
                                         received.strips, point_bytes),
                  0);
        profile = arrays.Profile();
        return tessaline_strips_next(&strips, &geometry, &profile) == 0 &&
               profile.time_stamp > since;
      });
      SetGlobalControl(0);
      if (!came) break;
      const double y = std::fmod(BeltAt(profile.time_stamp), kPeriod);
      if (y > 11 && y < 39) return BeltAt(profile.time_stamp);
    }
    ADD_FAILURE() << "no strip with ball and stairs";
    return 0;
  }

  static void ExpectScene(const View& view, unsigned point_bytes) {
    const Product& p = product();
    const tessaline_geometry geometry = GeometryOf(p, view);
    const tessaline_calibration optics = IdealOptics(p);
    Arrays arrays(p.full_width + 600);  // one product's frames are wider than its sensor
    tessaline_profile profile{};
    const double belt = Take(point_bytes, geometry, arrays, profile);
    const auto mm = arrays.Millimetres();
    ASSERT_EQ(tessaline_profile_to_mm(&optics, &profile, &mm), 0);
    EXPECT_NEAR(tessaline_y_by_time(profile.time_stamp, 0, kSpeed), belt, 1e-9);
    EXPECT_NEAR(
        tessaline_y_by_encoder(profile.encoder_stamp, 0, 1 / tessaline_board_scene_counts_per_mm()),
        belt, 0.011);

    // Rows come in steps; of the sensor, a step is as many as rows are left out.
    const double steps = point_bytes == 8 ? 65536 : 32;
    const double z_step = 40.0 / p.full_height * view.row_step / steps;
    unsigned seen = 0;
    unsigned high = 0;
    unsigned wrong = 0;
    for (std::size_t i = 0; i < profile.point_count; ++i) {
      if (arrays.valid[i] == 0) continue;
      const double x = tessaline_board_scene_x(arrays.column[i]);
      const double z = tessaline_board_scene_height(x, belt);
      ++seen;
      high += z > 1;
      if (std::abs(arrays.x[i] - x) > 1e-4 || std::abs(arrays.z[i] - z) > 0.5 * z_step + 1e-4) {
        if (++wrong <= 5) {
          ADD_FAILURE() << "column " << arrays.column[i] << ": " << arrays.x[i] << ", "
                        << arrays.z[i] << " and not " << x << ", " << z;
        }
      }
    }
    EXPECT_EQ(wrong, 0u) << "points";
    EXPECT_GT(seen, view.width / 3);
    EXPECT_GT(high, seen / 10) << "belt alone says nothing about heights";
  }

  static void ExpectScene(const View& view) { ExpectScene(view, product().bytes_per_point); }
};

TEST_P(SeriesInMillimetres, AllPixels) { ExpectScene(product().all_pixels); }

TEST_P(SeriesInMillimetres, ARegion) {
  const Region& region = product().region;
  ASSERT_EQ(SetROI1(region.x, region.y, region.width, region.height), 0);
  ExpectScene(product().region_view);
}

TEST_P(SeriesInMillimetres, TheReducedModes) {
  for (const DriveMode& drive : product().drive_modes) {
    SCOPED_TRACE(drive.mode);
    const View& view = drive.view;
    const bool done = SetDriveMode(drive.mode) == kDone;
    if (!done && view.row_step == 1) continue;
    // One sensor is half in that mode, and a region is enough.
    if (!done) {
      ASSERT_EQ(SetROI1(0, 0, view.width, view.height), 0);
    }
    ExpectScene(view);
  }
}

TEST_P(SeriesInMillimetres, Flips) {
  for (const unsigned direction : {1u, 2u, 3u}) {
    SCOPED_TRACE(direction);
    if (SetReverseMode(direction) != kDone) continue;
    View view = product().all_pixels;
    view.flip_y = product().flips && (direction & 1) != 0;
    view.flip_x = product().flips && (direction & 2) != 0;
    ExpectScene(view);
  }
}

// The region is counted in the order in which the sensor is read out.
TEST_P(SeriesInMillimetres, AFlippedRegion) {
  const Region& region = product().region;
  ASSERT_EQ(SetROI1(region.x, region.y, region.width, region.height), 0);
  for (const unsigned direction : {1u, 2u, 3u}) {
    SCOPED_TRACE(direction);
    if (SetReverseMode(direction) != kDone) continue;
    View view = product().region_view;
    view.flip_y = product().flips && (direction & 1) != 0;
    view.flip_x = product().flips && (direction & 2) != 0;
    ExpectScene(view);
  }
}

TEST_P(SeriesInMillimetres, EveryLayoutOfPoints) {
  const unsigned usual = product().bytes_per_point;
  const bool by_flag = usual == 2 && !product().Is("K37");
  SetBrFlag(1);
  ExpectScene(product().all_pixels, by_flag ? 4 : usual);
  SetContinuousFlag(1);
  ExpectScene(product().all_pixels, by_flag ? 8 : usual);
}

INSTANTIATE_TEST_SUITE_P(Profile, SeriesInMillimetres, ::testing::ValuesIn(AllProducts()), ModelOf);

}  // namespace
