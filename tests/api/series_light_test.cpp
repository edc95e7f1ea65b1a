// The brightness of the line in the frames of every product: exposure, gain, laser power, and
// features of single sensors.

#include "api/SeriesRun.h"

namespace {

using tessaline_test::AllProducts;
using tessaline_test::GainStep;
using tessaline_test::ModelOf;
using tessaline_test::Product;
using tessaline_test::SeriesRun;
using tessaline_test::Sighting;
using tessaline_test::View;
namespace fpga = VeltranoSDK::fpga;

class SeriesLight : public SeriesRun {
 protected:
  void SetUp() override {
    SeriesRun::SetUp();
    ShowTheWholeScene();
  }

  static int Brightest(const Sighting& sighting) {
    int brightest = 0;
    for (const auto& point : sighting.points) brightest = std::max(brightest, point.peak);
    return brightest;
  }
};

TEST_P(SeriesLight, TheExposureMakesItBrighterUntilItSaturates) {
  for (const unsigned exposure : {140u, 250u, 3000u}) {
    SCOPED_TRACE(exposure);
    EXPECT_EQ(SetExposureTime(1, exposure), 0);
    EXPECT_EQ(Get(fpga::kReg.EXP_TIME_1), Steps(exposure));
    ExpectSceneInBoth(product().all_pixels, Light(exposure));
  }
}

TEST_P(SeriesLight, ExposuresOfACycleTakeTurns) {
  ASSERT_EQ(SetCollectMode(1), 0);
  ASSERT_EQ(SetExposureNum(2), 0);
  ASSERT_EQ(SetExposureTime(1, 140), 0);
  ASSERT_EQ(SetExposureTime(2, 250), 0);
  for (int i = 0; i < 4; ++i) {
    const Sighting image = Snapshot(kImages);
    ExpectScene(image, product().all_pixels, Light(image.header.frame_id % 2 == 1 ? 140 : 250));
  }
}

TEST_P(SeriesLight, TheGainMakesItBrighter) {
  EXPECT_EQ(SetExposureTime(1, 140), 0);
  for (const GainStep& step : product().gains) {
    SCOPED_TRACE(step.gain);
    EXPECT_EQ(SetCmosGain(step.gain), 1);
    ExpectSceneInBoth(product().all_pixels, Light(140, step.factor));
  }
}

TEST_P(SeriesLight, TheLaserPowerMakesItBrighter) {
  EXPECT_EQ(SetExposureTime(1, 140), 0);
  for (const float percent : {40.0f, 75.0f, 100.0f}) {
    SCOPED_TRACE(percent);
    EXPECT_EQ(SetLaserPower(percent), 0);
    ExpectScene(Snapshot(kStrips), product().all_pixels,
                Light(140) * PowerAt(percent) / PowerAt(kLaserPercent));
  }
}

// The objects are brighter than the belt. All series except the first count the threshold in
// halves.
TEST_P(SeriesLight, AThresholdBetweenBeltAndObjectsHidesTheBelt) {
  const View& view = product().all_pixels;
  const auto threshold = static_cast<unsigned>(0.6 * Light(kExposure));
  EXPECT_EQ(SetRisThresholdValue(product().Is("K36") ? threshold : 2 * threshold + 1), 0);
  EXPECT_EQ(GetRisThresholdValue(), threshold);
  const Sighting strip = Snapshot(kStrips);
  std::vector<bool> found(view.width);
  for (const auto& point : strip.points) found.at(point.column) = true;
  const double belt = BeltAt(strip.header.time_stamp);
  unsigned objects = 0;
  unsigned wrong = 0;
  for (unsigned x = 0; x < view.width; ++x) {
    const bool object = LineIn(view, x, belt).reflectance == kObjectReflectance;
    objects += object ? 1 : 0;
    wrong += object != found[x] ? 1 : 0;
  }
  EXPECT_EQ(wrong, 0u) << "columns";
  EXPECT_GT(objects, view.width / 5);
}

INSTANTIATE_TEST_SUITE_P(Api, SeriesLight, ::testing::ValuesIn(AllProducts()), ModelOf);

std::vector<Product> ProductsOf(const char* family) {
  auto products = AllProducts();
  std::erase_if(products, [=](const Product& product) { return !product.Is(family); });
  return products;
}

// The GSPRINT6502BSI compresses values above half the scale to a quarter of the difference. This
// also applies after a change of the collect mode.
class Series24Light : public SeriesLight {};

TEST_P(Series24Light, HighDynamicRangeKeepsTheBrightFromSaturating) {
  EXPECT_EQ(SetExposureTime(1, 450), 0);
  EXPECT_EQ(Brightest(Snapshot(kImages)), 255);
  EXPECT_EQ(SetSensingMode(1), 0);
  EXPECT_EQ(fpga::kField.hdr_enable.Of(Get(fpga::kReg.HDR_CTRL)), 1u);
  const double bright = 128 + (Light(450) * kObjectReflectance - 128) / 4;
  for (const Mode mode : {kImages, kStrips, kImages}) {
    const Sighting sighting = Snapshot(mode);
    ExpectScene(sighting, product().all_pixels);
    if (mode == kImages) {
      EXPECT_NEAR(Brightest(sighting), bright + 8, 8) << "with the noise of dark pixels";
    } else if (product().bytes_per_point == 8) {
      EXPECT_NEAR(Brightest(sighting), bright, 1);
    }
  }
  EXPECT_EQ(SetSensingMode(0), 0);
  EXPECT_EQ(Brightest(Snapshot(kImages)), 255);
}

INSTANTIATE_TEST_SUITE_P(Api, Series24Light, ::testing::ValuesIn(ProductsOf("K39")), ModelOf);

// The e2v Flash 4K can time the exposure itself. The FPGA's slot then only starts it.
class Series25Light : public SeriesLight {
 protected:
  static constexpr unsigned kExposureRegister = 0x0097;
};

TEST_P(Series25Light, TheSensorTimesTheExposureItself) {
  EXPECT_EQ(SetExposureTime(1, 100), 0);
  EXPECT_EQ(Get(fpga::kReg.EXP_TIME_1), 1500u);
  EXPECT_EQ(SetSensingMode(1), 0);
  EXPECT_EQ(SetExposureTime(1, 100), 0);
  EXPECT_EQ(Get(fpga::kReg.EXP_TIME_1), 15u);
  EXPECT_EQ(tessaline_board_chip_get("sensor", kExposureRegister), 583);

  // The region does not depend on the exposure.
  EXPECT_EQ(SetSensingMode(0), 0);
  EXPECT_EQ(SetExposureTime(1, kExposure), 0);
  ExpectSceneInBoth(product().all_pixels, Light(kExposure));
}

INSTANTIATE_TEST_SUITE_P(Api, Series25Light, ::testing::ValuesIn(ProductsOf("K40")), ModelOf);

}  // namespace
