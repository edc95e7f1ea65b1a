// Strips of any bytes, of any number, with points of any size and a frame that lies anywhere, read
// into arrays of any size; compared with a byte-by-byte walk. What is read is measured with any
// calibration.
#include <fuzzer/FuzzedDataProvider.h>

#include <cmath>
#include <memory>
#include <vector>

#include "support/Require.h"
#include "support/StripReference.h"
#include "tessaline/profile.h"

namespace {

using tessaline_fuzz::Require;
using tessaline_fuzz::StripReference;

// Blocks of exactly their size: the address sanitizer sees a number too many.
struct Arrays {
  explicit Arrays(std::size_t size) {
    for (auto& block : floats) block = std::make_unique<float[]>(size);
    for (auto& block : bytes) block = std::make_unique<std::uint8_t[]>(size);
  }
  std::unique_ptr<float[]> floats[6];
  std::unique_ptr<std::uint8_t[]> bytes[4];
};

// Numbers as calibrations have them, and others.
double AnyNumber(FuzzedDataProvider& input, double usual) {
  if (input.ConsumeBool()) return usual;
  if (input.ConsumeBool()) return input.ConsumeFloatingPoint<double>();
  return usual + input.ConsumeFloatingPointInRange<double>(-1, 1);
}

tessaline_calibration AnyCalibration(FuzzedDataProvider& input, const tessaline_geometry& frame) {
  tessaline_calibration c{};
  c.sensor_width = AnyNumber(input, frame.sensor_width);
  c.sensor_height = AnyNumber(input, frame.sensor_height);
  c.centre_column = AnyNumber(input, 0.5 * frame.sensor_width);
  c.centre_row = AnyNumber(input, 0.5 * frame.sensor_height);
  c.pixels_per_unit = AnyNumber(input, 0.5 * frame.sensor_width);
  for (double& k : c.distortion) k = AnyNumber(input, 0);
  constexpr double kUsual[] = {36, 0, 0, 0, -20, 10, 0, 0.1, 1};
  for (std::size_t i = 0; i < 9; ++i) c.plane[i] = AnyNumber(input, kUsual[i]);
  c.column_sigma = AnyNumber(input, 0.03);
  c.row_sigma = AnyNumber(input, 0.03);
  c.x_sigma = AnyNumber(input, 0);
  c.z_sigma = AnyNumber(input, 0);
  if (input.ConsumeBool()) return c;
  c.field_corners = input.ConsumeBool() ? 4 : input.ConsumeIntegral<std::uint32_t>();
  for (tessaline_pixel& corner : c.field) {
    corner = {input.ConsumeIntegral<std::uint16_t>(), input.ConsumeIntegral<std::uint16_t>()};
  }
  return c;
}

tessaline_geometry AnyGeometry(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) return {1456, 1088, 100, 200, 1, 2, 0, 1};
  tessaline_geometry geometry{};
  std::uint32_t* const numbers[] = {
      &geometry.sensor_width, &geometry.sensor_height, &geometry.first_column, &geometry.first_row,
      &geometry.column_step,  &geometry.row_step,      &geometry.flip_columns, &geometry.flip_rows};
  for (std::uint32_t* number : numbers) {
    *number = input.ConsumeBool() ? input.ConsumeIntegralInRange(0u, 2u)
                                  : input.ConsumeIntegral<std::uint32_t>();
  }
  return geometry;
}

void Measure(const tessaline_calibration& calibration, const tessaline_profile& profile,
             const Arrays& arrays) {
  const tessaline_millimetres mm{arrays.floats[2].get(), arrays.floats[3].get(),
                                 arrays.floats[4].get(), arrays.floats[5].get(),
                                 arrays.bytes[3].get()};
  const int possible = tessaline_calibration_check(&calibration);
  const int result = tessaline_profile_to_mm(&calibration, &profile, &mm);
  Require((possible == 0) == (result != TESSALINE_PROFILE_CALIBRATION), "checked is checked");
  if (result != 0) return;
  for (std::size_t i = 0; i < profile.point_count; ++i) {
    Require((mm.valid[i] & TESSALINE_VALID) == profile.valid[i], "a point stays one");
    const bool outside = (mm.valid[i] & TESSALINE_OUTSIDE_FIELD) != 0;
    if (outside) Require(std::isnan(mm.x_sigma[i]) && std::isnan(mm.z_sigma[i]), "unknown");
    if (profile.valid[i] == 0) Require(std::isnan(mm.x[i]) && std::isnan(mm.z[i]), "no point");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto count = input.ConsumeBool() ? input.ConsumeIntegralInRange(0u, 5u)
                                         : input.ConsumeIntegral<std::uint32_t>();
  constexpr std::uint32_t kPoints[] = {2, 4, 8, 0, 3, 0xFFFFFFF8};
  const std::uint32_t point = input.PickValueInArray(kPoints);
  const auto capacity = input.ConsumeIntegralInRange<std::size_t>(0, 200);
  const bool with_bytes = input.ConsumeBool();
  const tessaline_geometry geometry = AnyGeometry(input);
  const tessaline_calibration calibration = AnyCalibration(input, geometry);
  const bool shifted = input.ConsumeBool();
  const auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();
  const auto block = std::make_unique<std::uint8_t[]>(bytes.size() + shifted);
  std::copy(bytes.begin(), bytes.end(), block.get() + shifted);

  double column = 0;
  double row = 0;
  tessaline_measurement measured{};
  if (tessaline_calibration_check(&calibration) == 0 &&
      tessaline_point_to_mm(&calibration, 1, 1, &measured) == 0) {
    tessaline_point_to_pixel(&calibration, measured.x, measured.z, &column, &row);
  }

  tessaline_strips strips{};
  const bool layout = point == 2 || point == 4 || point == 8;
  const int begun =
      tessaline_strips_begin(&strips, block.get() + shifted, bytes.size(), count, point);
  Require((begun == 0) == layout, "there are three layouts");
  if (begun != 0) return 0;

  const StripReference expected(bytes.data(), bytes.size(), count, point);
  const Arrays arrays(capacity);
  tessaline_profile profile{};
  profile.capacity = capacity;
  profile.column = arrays.floats[0].get();
  profile.row = arrays.floats[1].get();
  profile.valid = arrays.bytes[0].get();
  if (with_bytes) {
    profile.peak = arrays.bytes[1].get();
    profile.width = arrays.bytes[2].get();
  }
  std::size_t read = 0;
  int result = 0;
  while ((result = tessaline_strips_next(&strips, &geometry, &profile)) == 0) {
    Require(read < expected.strips.size(), "no strip that is not there");
    const auto& strip = expected.strips[read++];
    Require(profile.frame_id == strip.frame_id && profile.point_count == strip.point_count,
            "the strip that is there");
    for (std::size_t i = 0; i < profile.point_count; ++i) {
      Require(profile.valid[i] <= 1 && std::isnan(profile.row[i]) == (profile.valid[i] == 0),
              "a place on the sensor or none");
    }
    Measure(calibration, profile, arrays);
  }
  Require(strips.next >= block.get() + shifted &&
              strips.next + strips.bytes_left == block.get() + shifted + bytes.size(),
          "the place is within the bytes");
  if (result == TESSALINE_PROFILE_MALFORMED) {
    Require(read == expected.strips.size(), "all strips before");
    Require(!expected.complete || expected.bytes != bytes.size(), "something is wrong");
  }
  if (result == TESSALINE_PROFILE_END) {
    Require(expected.complete && expected.bytes == bytes.size(), "all is right");
  }
  return 0;
}
