// Every series from the model code to frames in the application's handlers, only through the
// exported functions. The frames are compared with the scene.

#include <gmock/gmock.h>

#include "api/SeriesRun.h"

namespace {

using tessaline_test::AllProducts;
using tessaline_test::Eventually;
using tessaline_test::ModelOf;
using tessaline_test::Product;
using tessaline_test::SeriesRun;
using tessaline_test::Sighting;
using tessaline_test::Sightings;
using tessaline_test::View;
namespace fpga = VeltranoSDK::fpga;

class Series : public SeriesRun {
 protected:
  // Runs timed triggers until `wanted` frames have arrived, and returns all frames, including later
  // ones.
  static std::vector<Sighting> Acquire(Mode mode, std::size_t wanted) {
    EXPECT_EQ(SetCollectMode(mode), 0);
    const auto before = Stats(mode);
    Sightings::Clear();
    SetGlobalControl(1);
    EXPECT_TRUE(Eventually([=] { return Sightings::Count() >= wanted; }));
    SetGlobalControl(0);
    // After the stop, older images are dropped but older strips are not.
    EXPECT_TRUE(Eventually([&] {
      const auto produced = Stats(mode).frames - before.frames;
      return mode == kImages || Sightings::Count() == produced;
    }));
    EXPECT_EQ(Stats(mode).lost, before.lost);
    return Sightings::All();
  }

  static void ExpectConsecutive(const std::vector<Sighting>& frames) {
    for (std::size_t i = 1; i < frames.size(); ++i) {
      ASSERT_EQ(frames[i].header.frame_id, frames[i - 1].header.frame_id + 1);
      ASSERT_GT(frames[i].header.time_stamp, frames[i - 1].header.time_stamp);
    }
  }

  static void ExpectEncoderOfItsTime(const Sighting& frame) {
    const double counts = BeltAt(frame.header.time_stamp) * tessaline_board_scene_counts_per_mm();
    EXPECT_NEAR(static_cast<double>(frame.header.encoder_stamp), counts, 1.01);
  }
};

TEST_P(Series, TellsWhatItIs) {
  const Product& p = product();
  EXPECT_EQ(GetCmosMaxDrive(), p.full_width << 16 | p.full_height);
  EXPECT_EQ(GetImageWidth(), p.at_start.width);
  EXPECT_EQ(GetImageHeight(), p.at_start.height);
  EXPECT_EQ(GetDriveMode(), 0u);
  EXPECT_EQ(GetCollectMode(), 1u);
  EXPECT_EQ(TransferMaxFrameValue(), p.max_frame_value);
  EXPECT_EQ(GetSensorTemp(), p.has_thermometer ? 0 : -1);
  EXPECT_EQ(GetDigitalPOTResolution(), p.pot_steps);
  EXPECT_NEAR(static_cast<double>(GetCpuTemp()), 40, 5);
  EXPECT_EQ(GetTriSpacing(), 200000u);
}

TEST_P(Series, TellsTheFpgaThePaceOfTheSensor) {
  const Product& p = product();
  EXPECT_EQ(Get(fpga::kReg.SENSOR_TIMING), p.timing_at_start);
  EXPECT_EQ(fpga::kField.exposure_delta.Of(Get(fpga::kReg.EXPOSURE_NUM)), p.images_delta);
  EXPECT_EQ(GetExposureNum(), 1u);
  for (const Mode mode : {kImages, kStrips, kImages}) {
    SCOPED_TRACE(mode);
    EXPECT_EQ(SetCollectMode(mode), 0);
    EXPECT_EQ(SetROI1(p.region.x, p.region.y, p.region.width, p.region.height), 0);
    const auto& pace = mode == kImages ? p.images : p.strips;
    EXPECT_EQ(Get(fpga::kReg.SENSOR_TIMING), pace.sensor_timing);
    EXPECT_EQ(Get(fpga::kReg.EXP_DELAY), pace.exposure_delay);
    EXPECT_EQ(fpga::kField.exposure_delta.Of(Get(fpga::kReg.EXPOSURE_NUM)),
              mode == kImages ? p.images_delta : 1u);
    EXPECT_EQ(GetExposureNum(), 1u);
  }
}

// The FPGA of one series swaps the numbers of two modes.
TEST_P(Series, SelectsTheStripData) {
  const bool exchanged = product().Is("K39");
  for (const unsigned mode : {0u, 1u, 2u, 3u}) {
    EXPECT_EQ(SetStripDataMode(mode), 0);
    const bool either = mode == 1 || mode == 2;
    EXPECT_EQ(GetStripDataMode(), exchanged && either ? 3 - mode : mode);
  }
}

TEST_P(Series, ShowsTheSceneAfterStartUp) {
  const View& view = product().at_start;
  if (view.height == product().all_pixels.height) {
    ExpectSceneInBoth(view, Light(kExposure));
  } else {
    // The upper half of the sensor sees nothing below 10 mm.
    EXPECT_EQ(ExpectLine(Snapshot(kStrips), view), 0u);
    EXPECT_EQ(ExpectLine(Snapshot(kImages), view), 0u);
  }
}

TEST_P(Series, ShowsTheSceneInTheAllPixelMode) {
  EXPECT_EQ(SetDriveMode(0), 0);
  EXPECT_EQ(GetImageWidth(), product().all_pixels.width);
  EXPECT_EQ(GetImageHeight(), product().all_pixels.height);
  ExpectSceneInBoth(product().all_pixels, Light(kExposure));
}

TEST_P(Series, LosesNothingAndCountsOnFromStripsToImages) {
  ShowTheWholeScene();
  tessaline_board_set_strips_per_buffer(4);
  ASSERT_EQ(SetTriMode(0), 0);
  ASSERT_EQ(SetTriSpacing(12'000), 0);

  const auto strips = Acquire(kStrips, 50);
  ASSERT_GE(strips.size(), 50u);
  ExpectConsecutive(strips);
  for (const std::size_t i : {std::size_t{0}, std::size_t{25}, strips.size() - 1}) {
    ExpectScene(strips[i], product().all_pixels);
    ExpectEncoderOfItsTime(strips[i]);
  }
  EXPECT_EQ(GetCallbackLostNum(), 0u);
  EXPECT_EQ(GetStripReleaseNum(), 0u);

  const auto images = Acquire(kImages, 3);
  ASSERT_GE(images.size(), 3u);
  EXPECT_EQ(images[0].header.frame_id, strips.back().header.frame_id + 1);
  ExpectConsecutive(images);
  for (const Sighting& image : images) {
    ExpectScene(image, product().all_pixels);
    ExpectEncoderOfItsTime(image);
  }
}

// A strip has one point per column that sees the line. With two bytes per point it has one point
// for every column.
TEST_P(Series, StripsHaveTheProductsPoints) {
  ShowTheWholeScene();
  const View& view = product().all_pixels;
  const auto expect = [&](unsigned bytes) {
    Sightings::BytesPerPoint(bytes);
    const Sighting strip = Snapshot(kStrips);
    const unsigned seen = ExpectLine(strip, view);
    EXPECT_EQ(strip.header.point_count, bytes == 2 ? view.width : strip.points.size());
    EXPECT_GT(seen, view.width / 2);
  };
  const unsigned usual = product().bytes_per_point;
  const bool by_flag = usual == 2 && !product().Is("K37");
  expect(usual);
  SetBrFlag(1);
  expect(by_flag ? 4 : usual);
  SetContinuousFlag(1);
  expect(by_flag ? 8 : usual);
  SetBrFlag(0);
  expect(by_flag ? 8 : usual);
  SetContinuousFlag(0);
  expect(usual);
  ASSERT_EQ(SetStripWriteMemMode(1), 0);
  expect(4);
  ASSERT_EQ(SetStripWriteMemMode(0), 0);
  expect(usual);
}

TEST_P(Series, TheLaserMakesTheLine) {
  ShowTheWholeScene();
  EXPECT_EQ(CloseLaser(), 0);
  EXPECT_TRUE(Snapshot(kStrips).points.empty());
  EXPECT_TRUE(Snapshot(kImages).points.empty());
  EXPECT_EQ(OpenLaser(), 0);
  ExpectSceneInBoth(product().all_pixels);
}

INSTANTIATE_TEST_SUITE_P(Api, Series, ::testing::ValuesIn(AllProducts()), ModelOf);

}  // namespace
