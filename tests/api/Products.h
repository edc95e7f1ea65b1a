#pragma once

#include <array>
#include <ostream>
#include <string>
#include <vector>

namespace tessaline_test {

// The part of the full sensor that a frame shows, and how.
struct View {
  unsigned left, top;  // pixels of the full sensor
  unsigned width, height;
  unsigned column_step = 1, row_step = 1;  // 2: every other one
  bool flip_x = false, flip_y = false;
};

struct DriveMode {
  unsigned mode;
  int result;
  View view;
  unsigned pl_drive_mode;  // the mode that the FPGA's reconstruction gets
};

struct Region {
  unsigned x, y, width, height;
};

// Timing values of the sensor in the FPGA. Some sensors change them with the collect mode.
struct Pace {
  unsigned sensor_timing;   // register SENSOR_TIMING
  unsigned exposure_delay;  // register EXP_DELAY while the region below is read out
};

struct GainStep {
  unsigned gain;
  double factor;  // of the light
};

// What an application may expect of a product.
struct Product {
  const char* model;
  unsigned full_width, full_height;
  View at_start;             // after start-up
  View all_pixels;           // in drive mode 0
  unsigned bytes_per_point;  // after start-up
  float exposure_unit;       // microseconds; exposure times are divided by it
  double exposure_step;      // microseconds of a real step
  unsigned pot_steps;        // of the laser power
  unsigned max_frame_value;
  bool has_thermometer;
  std::vector<DriveMode> drive_modes;  // all except 0
  Region region;                       // an accepted one
  View region_view;
  std::vector<Region> refused;
  std::array<unsigned, 2> isp;  // registers ISP_WIDTH and ISP_HEIGHT of the region
  unsigned selector_width;      // register STRIP_SELECTOR_IMAGE_WIDTH of the region
  unsigned timing_at_start;
  Pace strips, images;
  unsigned images_delta;          // exposure-count delta of collect mode 1
  std::array<int, 4> directions;  // results, indexed by direction
  bool flips;                     // accepted directions have an effect
  std::vector<GainStep> gains;

  bool Is(const char* prefix) const { return std::string(model).starts_with(prefix); }
  bool Has(const char* word) const { return std::string(model).find(word) != std::string::npos; }
};

inline std::ostream& operator<<(std::ostream& out, const Product& product) {
  return out << product.model;
}

namespace products {

inline constexpr int kDone = 0;
inline constexpr int kRefused = -1;

inline Product K36(const char* model) {
  return {.model = model,
          .full_width = 1456,
          .full_height = 1088,
          .at_start = {0, 0, 1456, 1088},
          .all_pixels = {0, 0, 1456, 1088},
          .bytes_per_point = 8,
          .exposure_unit = 3.205387f,
          .exposure_step = 238 / 74.25,
          .pot_steps = 1024,
          .max_frame_value = 0x00EE2A11,
          .has_thermometer = true,
          .drive_modes = {{0x11, kDone, {0, 0, 728, 544, 2, 2}, 3},
                          {0x22, kDone, {0, 0, 728, 544, 2, 2}, 0}},
          .region = {128, 256, 1000, 700},
          .region_view = {128, 256, 1000, 700},
          .refused = {{1, 0, 1456, 1088}, {0, 1, 1456, 1088}},
          .isp = {0, 0},
          .selector_width = 0,
          .timing_at_start = 237 << 5 | 20,
          .strips = {237 << 5 | 20, 700 + 45},
          .images = {237 << 5 | 20, 700 + 45},
          .images_delta = 6000,
          .directions = {kDone, kDone, kDone, kDone},
          .flips = true,
          .gains = {{6, 1.995}, {60, 251}}};
}

// Both reduced readouts of the IMX252 skip every other row and no columns. Its crop registers count
// the rows that are read out, so row 4 is then row 8 of the sensor.
inline Product K37(const char* model, bool ch16, unsigned bytes_per_point) {
  const unsigned row_time = ch16 ? 216 : 309;
  return {.model = model,
          .full_width = 2064,
          .full_height = 1544,
          .at_start = {8, 4, 2048, 1536},
          .all_pixels = {8, 4, 2048, 1536},
          .bytes_per_point = bytes_per_point,
          .exposure_unit = 4.175084f,
          .exposure_step = (ch16 ? 217 : 310) / 74.25,
          .pot_steps = 1024,
          .max_frame_value = ch16 ? 0x00D9260Du : 0x0136260Du,
          .has_thermometer = true,
          .drive_modes = {{0x11, kDone, {8, 8, 2048, 768, 1, 2}, 0},
                          {0x22, kDone, {8, 8, 2048, 768, 1, 2}, 0}},
          .region = {128, 300, 1600, 1000},
          .region_view = {128, 300, 1600, 1000},
          .refused = {},
          .isp = {0, 0},
          .selector_width = bytes_per_point == 2 ? 1600u : 0u,
          .timing_at_start = row_time << 5 | 16,
          .strips = {row_time << 5 | 16, 1000 + 41},
          .images = {row_time << 5 | 16, 1000 + 41},
          .images_delta = 6000,
          .directions = {kDone, kDone, kDone, kDone},
          .flips = true,
          .gains = {{6, 1.995}, {60, 251}}};
}

inline Product K38(const char* model) {
  return {.model = model,
          .full_width = 4200,
          .full_height = 2048,
          .at_start = {0, 0, 4200, 1024},
          .all_pixels = {0, 0, 4200, 2048},
          .bytes_per_point = 8,
          .exposure_unit = 1.5833334f,
          .exposure_step = 152 / 96.0,
          .pot_steps = 1024,
          .max_frame_value = 0x00981508,
          .has_thermometer = true,
          .drive_modes = {{0x11, kDone, {0, 0, 2100, 1024, 2, 2}, 3},
                          {0x22, kRefused, {0, 0, 4200, 2048}, 0}},
          .region = {280, 500, 2800, 1200},
          .region_view = {280, 500, 2800, 1200},
          .refused = {{0, 0, 559, 100}, {14, 0, 560, 100}, {3668, 0, 560, 100}},
          .isp = {280 / 28, 2800 / 28},
          .selector_width = 0,
          .timing_at_start = 151 << 16 | 1520 / 152 * 8,
          .strips = {151 << 16 | 152 / 152 * 8, (1200 + 21) * (152 / 152)},
          .images = {151 << 16 | 12464 / 152 * 8, (1200 + 21) * (12464 / 152)},
          .images_delta = 6000,
          .directions = {kDone, kDone, kDone, kDone},
          .flips = true,
          .gains = {{2, 2}, {9, 5}, {0, 1}}};
}

// Its sensor has every other row of the array: half as many rows. The start of a region counts rows
// of the array.
inline Product K3810() {
  Product product = K38("K3810");
  product.full_height = 1024;
  product.all_pixels.height = 1024;
  product.drive_modes = {{0x11, kDone, {0, 0, 2100, 1024, 2, 1}, 1},
                         {0x22, kRefused, {0, 0, 4200, 1024}, 0}};
  product.region = {280, 100, 2800, 800};
  product.region_view = {280, 50, 2800, 800};
  product.strips.exposure_delay = (800 + 21) * (152 / 152);
  product.images.exposure_delay = (800 + 21) * (12464 / 152);
  return product;
}

inline Product K39(const char* model, unsigned bytes_per_point) {
  return {.model = model,
          .full_width = 2048,
          .full_height = 1152,
          .at_start = {0, 0, 2048, 1152},
          .all_pixels = {0, 0, 2048, 1152},
          .bytes_per_point = bytes_per_point,
          .exposure_unit = 1.1333333f,
          .exposure_step = 17 / 15.0,
          .pot_steps = 128,
          .max_frame_value = 0x0136260D,
          .has_thermometer = true,
          .drive_modes = {{0x11, kDone, {0, 0, 1024, 576, 2, 2}, 3},
                          {0x22, kRefused, {0, 0, 2048, 1152}, 0}},
          .region = {64, 200, 1920, 800},
          .region_view = {64, 200, 1920, 800},
          .refused = {{16, 0, 1024, 600}, {0, 0, 2000, 600}, {0, 0, 1024, 601}, {64, 0, 2016, 600}},
          .isp = {64 / 32, 800 << 8 | 1920 / 32},
          .selector_width = 1920,
          .timing_at_start = 360 / 72 * 4,
          .strips = {72 / 72 * 4, ((800 + 4) / 2 + 10) * (72 / 72)},
          .images = {360 / 72 * 4, ((800 + 4) / 2 + 10) * (360 / 72)},
          .images_delta = 10'000'000,
          .directions = {kDone, kDone, kDone, kDone},
          .flips = false,
          .gains = {{1, 1}, {0, 1}}};
}

constexpr unsigned E2vDelay(unsigned rows, unsigned blanking) {
  const unsigned line = blanking + 128;
  return ((rows + 16) * line >> 4) + (line * 3 / 2 >> 2) + 28 + (line * 3 >> 2);
}

// 0x11 fails because half of 1080 rows is not a multiple of 8. The sensor is then in reduced
// readout, and the next region decides what it reads out.
inline Product K40(const char* model, unsigned bytes_per_point) {
  return {.model = model,
          .full_width = 4096,
          .full_height = 1080,
          .at_start = {0, 0, 4096, 1080},
          .all_pixels = {0, 0, 4096, 1080},
          .bytes_per_point = bytes_per_point,
          .exposure_unit = 0.06666667f,
          .exposure_step = 1 / 15.0,
          .pot_steps = 128,
          .max_frame_value = 0x0136260D,
          .has_thermometer = false,
          .drive_modes = {{0x11, kRefused, {0, 0, 2048, 536, 2, 2}, 0},
                          {0x22, kRefused, {0, 0, 4096, 1080}, 0}},
          .region = {128, 240, 3840, 720},
          .region_view = {128, 240, 3840, 720},
          .refused = {{32, 0, 64, 8}, {0, 4, 64, 8}, {64, 0, 4096, 8}, {0, 8, 64, 1080}},
          .isp = {128 / 64, 3840 / 64},
          .selector_width = 3840,
          .timing_at_start = 7 << 16 | 28,
          .strips = {7 << 16 | 28, E2vDelay(720, 1)},
          .images = {7 << 16 | 28, E2vDelay(720, 256)},
          .images_delta = 10'000'000,
          .directions = {kDone, kDone, kRefused, kRefused},
          .flips = true,
          .gains = {{1, 1}}};
}

}  // namespace products

// One product of every series.
inline std::vector<Product> AllProducts() {
  using namespace products;
  return {K36("K3610"),
          K37("K3710", false, 8),
          K37("K3710ch16", true, 8),
          K37("K3710ch16arm_rebuild", true, 2),
          K3810(),
          K38("K3820"),
          K39("K3920", 8),
          K39("K3920arm_rebuild", 2),
          K40("K4010", 8),
          K40("K4010arm_rebuild", 2)};
}

}  // namespace tessaline_test
