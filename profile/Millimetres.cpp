// Whole profiles in millimetres. Single precision: four points at a time where double precision
// has two, and its rounding is far below what a laser line can be measured to.
#include <cstdint>

#include "Calibration.h"
#include "Field.h"
#include "PlaneMap.h"
#include "Sigma.h"
#include "Wide.h"

namespace profile {

namespace {

// Where there is no point, the row is NaN, and so is what is computed from it. Nothing else can go
// wrong: the sensor lies before the horizon. The arrays are arguments because that is where both
// compilers believe that they do not overlap.
void Measure(const PlaneMap<float> map, std::size_t count, const float* __restrict columns,
             const float* __restrict rows, float* __restrict x, float* __restrict z) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto plane = map.Project(map.At(columns[i], rows[i]));
    x[i] = map.x0 + plane.x;
    z[i] = map.z0 + plane.z;
  }
}

template <typename Field>
void MeasureSigma(const PlaneMap<float> map, const Sigma<float> sigma, const Field field,
                  std::size_t count, const float* __restrict columns, const float* __restrict rows,
                  float* __restrict x_sigma, float* __restrict z_sigma) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto image = map.At(columns[i], rows[i]);
    const auto plane = map.Project(image);
    const auto by = map.DerivativesAt(image, plane);
    const bool seen = field.Holds(columns[i], rows[i]);
    const float x = sigma.OfX(by.x_column, by.x_row);
    const float z = sigma.OfZ(by.z_column, by.z_row);
    x_sigma[i] = seen ? x : kUnknown<float>;
    z_sigma[i] = seen ? z : kUnknown<float>;
  }
}

template <typename Field>
void Validate(const Field field, std::size_t count, const float* __restrict columns,
              const float* __restrict rows, std::uint8_t* __restrict valid) {
  for (std::size_t i = 0; i < count; ++i) {
    const int outside = field.Holds(columns[i], rows[i]) ? 0 : TESSALINE_OUTSIDE_FIELD;
    const int point = rows[i] == rows[i] ? TESSALINE_VALID | outside : 0;
    valid[i] = static_cast<std::uint8_t>(point);
  }
}

template <typename Field>
void MeasureAll(const tessaline_calibration& calibration, const tessaline_profile& profile,
                const tessaline_millimetres& mm) {
  const std::size_t count = profile.point_count;
  const PlaneMap<float> map(calibration);
  Measure(map, count, profile.column, profile.row, mm.x, mm.z);
  const Field field(calibration);
  if (mm.x_sigma != nullptr) {
    MeasureSigma(map, Sigma<float>(calibration), field, count, profile.column, profile.row,
                 mm.x_sigma, mm.z_sigma);
  }
  if (mm.valid != nullptr) Validate(field, count, profile.column, profile.row, mm.valid);
}

template <typename Field>
TESSALINE_PROFILE_WIDE void MeasureAllWide(const tessaline_calibration& calibration,
                                           const tessaline_profile& profile,
                                           const tessaline_millimetres& mm) {
  MeasureAll<Field>(calibration, profile, mm);
}

template <typename Field>
auto MeasureWith() {
  return HasWideVectors() ? MeasureAllWide<Field> : MeasureAll<Field>;
}

}  // namespace

}  // namespace profile

int tessaline_profile_to_mm(const struct tessaline_calibration* calibration,
                            const struct tessaline_profile* profile,
                            const struct tessaline_millimetres* mm) {
  using namespace profile;  // NOLINT(google-build-using-namespace)
  if (calibration == nullptr || profile == nullptr || mm == nullptr) {
    return TESSALINE_PROFILE_ARGUMENT;
  }
  if (!IsPossible(*calibration)) return TESSALINE_PROFILE_CALIBRATION;
  if (calibration->sensor_width != profile->sensor_width ||
      calibration->sensor_height != profile->sensor_height) {
    return TESSALINE_PROFILE_SENSOR;
  }
  if ((mm->x_sigma == nullptr) != (mm->z_sigma == nullptr)) return TESSALINE_PROFILE_ARGUMENT;
  if (profile->point_count == 0) return TESSALINE_PROFILE_OK;
  if (profile->point_count > profile->capacity) return TESSALINE_PROFILE_CAPACITY;
  if (profile->column == nullptr || profile->row == nullptr || mm->x == nullptr ||
      mm->z == nullptr) {
    return TESSALINE_PROFILE_ARGUMENT;
  }
  const auto measure =
      calibration->field_corners > 0 ? MeasureWith<Polygon<float>>() : MeasureWith<Everywhere>();
  measure(*calibration, *profile, *mm);
  return TESSALINE_PROFILE_OK;
}
