// How frames lie on the sensor, as the command and the Python package work it out. series_test.cpp
// shows that the views of the table are those of the board.
#include "Geometry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Failure.h"
#include "api/SeriesRun.h"

namespace {

using tessaline_test::AllProducts;
using tessaline_test::DriveMode;
using tessaline_test::ModelOf;
using tessaline_test::Product;
using tessaline_test::View;
using tessaline_test::products::kDone;

class Geometry : public ::testing::TestWithParam<Product> {
 protected:
  static tessaline_geometry Of(unsigned x, unsigned y, unsigned drive_mode, unsigned direction) {
    return tool::GeometryOf(tool::Model(GetParam().model), {x, y, 0, 0}, drive_mode, direction);
  }

  static void ExpectView(const tessaline_geometry& geometry, const View& view) {
    EXPECT_EQ(geometry.sensor_width, GetParam().full_width);
    EXPECT_EQ(geometry.sensor_height, GetParam().full_height);
    EXPECT_EQ(geometry.first_column, view.left);
    EXPECT_EQ(geometry.first_row, view.top);
    EXPECT_EQ(geometry.column_step, view.column_step);
    EXPECT_EQ(geometry.row_step, view.row_step);
    EXPECT_EQ(geometry.flip_columns, view.flip_x ? 1u : 0u);
    EXPECT_EQ(geometry.flip_rows, view.flip_y ? 1u : 0u);
  }
};

// Drive modes have the region of a start.
TEST_P(Geometry, WithoutARegion) {
  const View& all = GetParam().all_pixels;
  ExpectView(Of(all.left, all.top, 0, 0), all);
}

TEST_P(Geometry, OfARegionInEveryDirection) {
  const Product& product = GetParam();
  for (unsigned direction = 0; direction < 4; ++direction) {
    SCOPED_TRACE(direction);
    if (product.directions[direction] != kDone) {
      EXPECT_THROW(Of(0, 0, 0, direction), tool::Failure);
      continue;
    }
    View view = product.region_view;
    view.flip_y = product.flips && (direction & 1) != 0;
    view.flip_x = product.flips && (direction & 2) != 0;
    ExpectView(Of(product.region.x, product.region.y, 0, direction), view);
  }
}

TEST_P(Geometry, OfTheReducedModes) {
  const Product& product = GetParam();
  const View& all = product.all_pixels;
  for (const DriveMode& drive : product.drive_modes) {
    SCOPED_TRACE(drive.mode);
    if (drive.view.row_step == 1 && drive.result != kDone) {
      EXPECT_THROW(Of(0, 0, drive.mode, 0), tool::Failure);
      continue;
    }
    ExpectView(Of(all.left, all.top, drive.mode, 0), drive.view);
  }
  EXPECT_THROW(Of(0, 0, 0x33, 0), tool::Failure);
}

INSTANTIATE_TEST_SUITE_P(Profile, Geometry, ::testing::ValuesIn(AllProducts()), ModelOf);

}  // namespace
