#pragma once

#include <cmath>

#include "tessaline/profile.h"

namespace profile {

// Propagation of uncertainty for independent column and row, and the calibration's own.
template <typename Real>
struct Sigma {
  explicit Sigma(const tessaline_calibration& c)
      : column_variance(static_cast<Real>(c.column_sigma * c.column_sigma)),
        row_variance(static_cast<Real>(c.row_sigma * c.row_sigma)),
        x_variance(static_cast<Real>(c.x_sigma * c.x_sigma)),
        z_variance(static_cast<Real>(c.z_sigma * c.z_sigma)) {}

  Real OfX(Real by_column, Real by_row) const { return Of(by_column, by_row, x_variance); }
  Real OfZ(Real by_column, Real by_row) const { return Of(by_column, by_row, z_variance); }

  Real column_variance, row_variance, x_variance, z_variance;

 private:
  Real Of(Real by_column, Real by_row, Real own) const {
    return std::sqrt(by_column * by_column * column_variance + by_row * by_row * row_variance +
                     own);
  }
};

}  // namespace profile
