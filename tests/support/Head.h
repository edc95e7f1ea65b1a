#pragma once

#include "tessaline/profile.h"

namespace tessaline_test {

// A head as they are built: 73 mm wide, the laser plane tilted against the sensor, a lens with
// some pincushion.
inline constexpr tessaline_calibration kHead{
    .sensor_width = 1456,
    .sensor_height = 1088,
    .centre_column = 731.5,
    .centre_row = 540.25,
    .pixels_per_unit = 728,
    .distortion = {-0.031, 0.0042, -0.0007},
    .plane = {36.4, 0.42, 0.31, 0.17, -27.2, 9.6, 0.004, 0.12, 1},
    .column_sigma = 0.03,
    .row_sigma = 0.05,
    .x_sigma = 0.001,
    .z_sigma = 0.002,
    .field_corners = 0,
    .field = {}};

}  // namespace tessaline_test
