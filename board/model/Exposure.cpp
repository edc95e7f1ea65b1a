#include "model/Exposure.h"

#include <algorithm>

#include "model/Scene.h"

namespace board {

LinePoint LineAt(const Exposure& exposure, unsigned column) {
  const SensorState& sensor = exposure.sensor;
  const double step = sensor.subsampling;
  double on_sensor = sensor.crop_x + column * step;
  if (sensor.flip_horizontal) on_sensor = sensor.full_width - 1 - on_sensor;
  const double x = scene::X(on_sensor, sensor.full_width);
  double row = scene::Row(scene::Height(x, exposure.belt_y), sensor.full_height);
  if (sensor.flip_vertical) row = sensor.full_height - 1 - row;
  const double peak = exposure.light * scene::Reflectance(x, exposure.belt_y);
  return {(row - sensor.crop_y) / step, std::min(255.0, peak)};
}

}  // namespace board
