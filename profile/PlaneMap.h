#pragma once

#include "tessaline/profile.h"

namespace profile {

// A calibration, ready to be evaluated in one precision. The projective map is written
// relative to the point that the centre of the distortion sees, (x0, z0):
//   x = x0 + (xu U + xv V) / (1 + wu U + wv V),   z = z0 + (zu U + zv V) / (1 + wu U + wv V)
// In single precision, what is rounded then is the distance from there, not the millimetres
// from wherever the calibration has its origin.
template <typename Real>
struct PlaneMap {
  explicit PlaneMap(const tessaline_calibration& c)
      : centre_column(static_cast<Real>(c.centre_column)),
        centre_row(static_cast<Real>(c.centre_row)),
        per_pixel(static_cast<Real>(1 / c.pixels_per_unit)),
        k1(static_cast<Real>(c.distortion[0])),
        k2(static_cast<Real>(c.distortion[1])),
        k3(static_cast<Real>(c.distortion[2])) {
    const double* m = c.plane;
    const double x_centre = m[2] / m[8];
    const double z_centre = m[5] / m[8];
    x0 = static_cast<Real>(x_centre);
    z0 = static_cast<Real>(z_centre);
    xu = static_cast<Real>((m[0] - x_centre * m[6]) / m[8]);
    xv = static_cast<Real>((m[1] - x_centre * m[7]) / m[8]);
    zu = static_cast<Real>((m[3] - z_centre * m[6]) / m[8]);
    zv = static_cast<Real>((m[4] - z_centre * m[7]) / m[8]);
    wu = static_cast<Real>(m[6] / m[8]);
    wv = static_cast<Real>(m[7] / m[8]);
  }

  // An image point in units, and what the distortion does there.
  struct Image {
    Real u, v;    // as seen
    Real q;       // u u + v v
    Real factor;  // from as seen to without distortion
  };

  Image At(Real column, Real row) const {
    const Real u = (column - centre_column) * per_pixel;
    const Real v = (row - centre_row) * per_pixel;
    const Real q = u * u + v * v;
    return {u, v, q, 1 + q * (k1 + q * (k2 + q * k3))};
  }

  // A point of the plane relative to (x0, z0). `depth` is not above 0 behind the horizon.
  struct Plane {
    Real x, z;
    Real depth;
    Real per_depth;
  };

  Plane Project(const Image& image) const {
    const Real u = image.u * image.factor;
    const Real v = image.v * image.factor;
    const Real depth = 1 + wu * u + wv * v;
    const Real per_depth = 1 / depth;
    return {(xu * u + xv * v) * per_depth, (zu * u + zv * v) * per_depth, depth, per_depth};
  }

  // Millimetres per pixel.
  struct Derivatives {
    Real x_column, x_row, z_column, z_row;
  };

  Derivatives DerivativesAt(const Image& image, const Plane& at) const {
    const Real slope = k1 + image.q * (2 * k2 + image.q * 3 * k3);  // of the factor, over q
    const Real uu = image.factor + 2 * image.u * image.u * slope;
    const Real uv = 2 * image.u * image.v * slope;
    const Real vv = image.factor + 2 * image.v * image.v * slope;
    const Real scale = at.per_depth * per_pixel;
    const Real x_u = (xu - at.x * wu) * scale;
    const Real x_v = (xv - at.x * wv) * scale;
    const Real z_u = (zu - at.z * wu) * scale;
    const Real z_v = (zv - at.z * wv) * scale;
    return {x_u * uu + x_v * uv, x_u * uv + x_v * vv, z_u * uu + z_v * uv, z_u * uv + z_v * vv};
  }

  Real centre_column, centre_row, per_pixel;
  Real k1, k2, k3;
  Real x0, z0, xu, xv, zu, zv, wu, wv;
};

}  // namespace profile
