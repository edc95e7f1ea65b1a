// What every product reads out of its sensor: the effect of drive modes, regions of interest and
// flips on the frames.

#include "api/SeriesRun.h"

namespace {

using tessaline_test::AllProducts;
using tessaline_test::DriveMode;
using tessaline_test::ModelOf;
using tessaline_test::Product;
using tessaline_test::Region;
using tessaline_test::SeriesRun;
using tessaline_test::View;
using tessaline_test::products::kDone;
using tessaline_test::products::kRefused;
namespace fpga = VeltranoSDK::fpga;

class SeriesReadout : public SeriesRun {
 protected:
  void SetUp() override {
    SeriesRun::SetUp();
    ShowTheWholeScene();
  }

  static void ExpectSize(const View& view) {
    EXPECT_EQ(GetImageWidth(), view.width);
    EXPECT_EQ(GetImageHeight(), view.height);
  }

  static void Try(const DriveMode& drive) {
    SCOPED_TRACE(drive.mode);
    EXPECT_EQ(SetDriveMode(drive.mode), drive.result);
    EXPECT_EQ(GetDriveMode(), drive.mode);
    if (drive.result == kRefused) {
      // Half of it is done, so that a region is enough, or none of it.
      const View& view = drive.view;
      EXPECT_EQ(view.row_step == 1 ? SetDriveMode(0) : SetROI1(0, 0, view.width, view.height), 0);
    }
    ExpectSize(drive.view);
    ExpectSceneInBoth(drive.view);
    EXPECT_EQ(fpga::kField.pl_drive_mode.Of(Get(fpga::kReg.ROI_OFFSET)), drive.pl_drive_mode);
  }
};

TEST_P(SeriesReadout, TheFirstReducedModeShowsTheScene) { Try(product().drive_modes[0]); }
TEST_P(SeriesReadout, TheSecondReducedModeShowsTheSceneOrIsRefused) {
  Try(product().drive_modes[1]);
}

TEST_P(SeriesReadout, AnUnknownModeIsRefusedAndTheNextOneWorks) {
  EXPECT_EQ(SetDriveMode(0x33), kRefused);
  EXPECT_EQ(SetDriveMode(0), 0);
  ExpectSize(product().all_pixels);
  ExpectSceneInBoth(product().all_pixels);
}

TEST_P(SeriesReadout, TheReducedModeCanBeLeft) {
  SetDriveMode(0x11);
  EXPECT_EQ(SetDriveMode(0), 0);
  ExpectSize(product().all_pixels);
  ExpectSceneInBoth(product().all_pixels);
}

TEST_P(SeriesReadout, ARegionIsPartOfTheScene) {
  const Region& region = product().region;
  EXPECT_EQ(SetROI1(region.x, region.y, region.width, region.height), 0);
  ExpectSize(product().region_view);
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_HEIGHT), region.height);
  EXPECT_EQ(Get(fpga::kReg.ISP_WIDTH), product().isp[0]);
  EXPECT_EQ(Get(fpga::kReg.ISP_HEIGHT), product().isp[1]);
  EXPECT_EQ(Get(fpga::kReg.STRIP_SELECTOR_IMAGE_WIDTH), product().selector_width);
  ExpectSceneInBoth(product().region_view, Light(kExposure));
}

TEST_P(SeriesReadout, ARegionThatDoesNotFitIsRefusedAndTheNextOneWorks) {
  for (const Region& region : product().refused) {
    EXPECT_EQ(SetROI1(region.x, region.y, region.width, region.height), kRefused);
    EXPECT_EQ(GetImageWidth(), region.width);
    EXPECT_EQ(GetImageHeight(), region.height);
  }
  const Region& region = product().region;
  EXPECT_EQ(SetROI1(region.x, region.y, region.width, region.height), 0);
  ExpectSceneInBoth(product().region_view);
}

TEST_P(SeriesReadout, ARegionIsGivenUpForAllPixels) {
  const Region& region = product().region;
  EXPECT_EQ(SetROI1(region.x, region.y, region.width, region.height), 0);
  if (product().Is("K40")) {
    // Offsets are kept, and with an offset the whole size is not a valid region of the e2v Flash
    // 4K.
    EXPECT_EQ(SetDriveMode(0), kRefused);
    EXPECT_EQ(SetROI1(0, 0, product().full_width, product().full_height), 0);
  } else {
    EXPECT_EQ(SetDriveMode(0), 0);
  }
  ExpectSize(product().all_pixels);
  ExpectSceneInBoth(product().all_pixels);
}

TEST_P(SeriesReadout, FlipsTurnRowsAndColumnsRound) {
  for (const unsigned direction : {1u, 2u, 3u, 0u}) {
    SCOPED_TRACE(direction);
    EXPECT_EQ(SetReverseMode(direction), product().directions[direction]);
    if (product().directions[direction] != kDone) continue;
    View view = product().all_pixels;
    view.flip_y = product().flips && (direction & 1) != 0;
    view.flip_x = product().flips && (direction & 2) != 0;
    ExpectSceneInBoth(view);
  }
}

INSTANTIATE_TEST_SUITE_P(Api, SeriesReadout, ::testing::ValuesIn(AllProducts()), ModelOf);

}  // namespace
