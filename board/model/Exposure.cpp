#include "model/Exposure.h"

#include <algorithm>

#include "model/Scene.h"

namespace board {

namespace {

// With high dynamic range, the upper half of the scale covers four times the light.
constexpr double kKnee = 128;
constexpr double kCompression = 4;

double Grey(double light, bool hdr) {
  const double grey = hdr && light > kKnee ? kKnee + (light - kKnee) / kCompression : light;
  return std::min(255.0, grey);
}

}  // namespace

LinePoint LineAt(const Exposure& exposure, unsigned column) {
  const SensorState& sensor = exposure.sensor;
  double on_sensor = sensor.crop_x + static_cast<double>(column) * sensor.column_step;
  // The frame is wider than the area that the sensor reads out.
  if (on_sensor >= sensor.full_width) return {0, 0};
  if (sensor.flip_horizontal) on_sensor = sensor.full_width - 1 - on_sensor;
  const double x = scene::X(on_sensor, sensor.full_width);
  double row = scene::Row(scene::Height(x, exposure.belt_y), sensor.full_height);
  if (sensor.flip_vertical) row = sensor.full_height - 1 - row;
  const double light = exposure.light * scene::Reflectance(x, exposure.belt_y);
  return {(row - sensor.crop_y) / sensor.row_step, Grey(light, sensor.hdr)};
}

}  // namespace board
