// Whole profiles in millimetres. Single precision: four points at a time where double precision
// has two, and its rounding is far below what a laser line can be measured to.
#include "Calibration.h"
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

void MeasureSigma(const PlaneMap<float> map, const Sigma<float> sigma, std::size_t count,
                  const float* __restrict columns, const float* __restrict rows,
                  float* __restrict x_sigma, float* __restrict z_sigma) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto image = map.At(columns[i], rows[i]);
    const auto plane = map.Project(image);
    const auto by = map.DerivativesAt(image, plane);
    x_sigma[i] = sigma.OfX(by.x_column, by.x_row);
    z_sigma[i] = sigma.OfZ(by.z_column, by.z_row);
  }
}

void MeasureAll(const tessaline_calibration& calibration, const tessaline_profile& profile,
                const tessaline_millimetres& mm) {
  const PlaneMap<float> map(calibration);
  Measure(map, profile.point_count, profile.column, profile.row, mm.x, mm.z);
  if (mm.x_sigma == nullptr) return;
  MeasureSigma(map, Sigma<float>(calibration), profile.point_count, profile.column, profile.row,
               mm.x_sigma, mm.z_sigma);
}

TESSALINE_PROFILE_WIDE void MeasureAllWide(const tessaline_calibration& calibration,
                                           const tessaline_profile& profile,
                                           const tessaline_millimetres& mm) {
  MeasureAll(calibration, profile, mm);
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
  const auto measure = HasWideVectors() ? MeasureAllWide : MeasureAll;
  measure(*calibration, *profile, *mm);
  return TESSALINE_PROFILE_OK;
}
