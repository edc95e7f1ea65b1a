#include "model/Exposure.h"

#include <algorithm>

#include "model/Scene.h"
#include "model/Speckle.h"

namespace board {

namespace {

// With high dynamic range, the upper half of the scale covers four times the light.
constexpr double kKnee = 128;
constexpr double kCompression = 4;

constexpr double kBrightest = 255;
constexpr LinePoint kNoPoint{0, 0, 0};

// Without the limit of kBrightest.
double Grey(double light, bool hdr) {
  return hdr && light > kKnee ? kKnee + (light - kKnee) / kCompression : light;
}

}  // namespace

ExposedLine::ExposedLine(const Exposure& exposure) : exposure_(exposure) {
  const auto& [head, target] = *exposure.view;
  if (!head) return;
  if (target) {
    real_.emplace(*head, target->CrossSection(), false);
  } else {
    real_.emplace(*head, scene::CrossSection(exposure.belt_y), true);
  }
}

LinePoint ExposedLine::At(unsigned column) const {
  const SensorState& sensor = exposure_.sensor;
  double on_sensor = sensor.crop_x + static_cast<double>(column) * sensor.column_step;
  // The frame is wider than the area that the sensor reads out.
  if (on_sensor >= sensor.full_width) return kNoPoint;
  if (sensor.flip_horizontal) on_sensor = sensor.full_width - 1 - on_sensor;
  LinePoint point = real_ ? Real(on_sensor) : Ideal(on_sensor);
  if (sensor.flip_vertical) point.row = sensor.full_height - 1 - point.row;
  point.row = (point.row - sensor.crop_y) / sensor.row_step;
  return point;
}

// The grey value without its limit.
double ExposedLine::LightAt(double x) const {
  const double reflectance =
      exposure_.view->target ? Target::kReflectance : scene::Reflectance(x, exposure_.belt_y);
  return Grey(exposure_.light * reflectance, exposure_.sensor.hdr);
}

LinePoint ExposedLine::Ideal(double column) const {
  const SensorState& sensor = exposure_.sensor;
  const double x = scene::X(column, sensor.full_width);
  double z = 0;
  if (const auto& target = exposure_.view->target) {
    const std::optional<double> height = target->CrossSection().Height(x);
    if (!height) return kNoPoint;
    z = *height;
  } else {
    z = scene::Height(x, exposure_.belt_y);
  }
  const double peak = std::min(kBrightest, LightAt(x));
  return {scene::Row(z, sensor.full_height), peak, peak};
}

LinePoint ExposedLine::Real(double column) const {
  const View& view = *exposure_.view;
  const Head& head = *view.head;
  const std::uint64_t surface = view.target ? view.target->Key() : 0;
  const Speckle speckle =
      SpeckleAt(head.Seed() + surface, exposure_.frame_id, static_cast<unsigned>(column));
  if (speckle.lost) return kNoPoint;
  const auto place = real_->At(column);
  if (!place) return kNoPoint;
  const auto [x, z] = place->point;
  const PlanePoint camera = head.Camera();
  if (!view.target &&
      scene::IsBlocked({x, exposure_.belt_y, z, camera.x - x, -head.CameraAway(), camera.z - z})) {
    return kNoPoint;
  }
  const double light = std::max(0.0, LightAt(x) * (1 + kSpeckleContrast * speckle.peak));
  return {place->row + SpeckleRowSigma(light) * speckle.row, std::min(kBrightest, light), light};
}

}  // namespace board
