#pragma once

#include <array>
#include <vector>

#include "calibrate/Problem.h"

namespace tool::calibrate {

// One view's part in the result.
struct Fit {
  std::string name;
  double error_pixels = 0;  // root mean square of its samples
  double error_mm = 0;
  std::vector<double> across;  // mean residuals in mm, from the left of the field to its right; NaN
                               // where there are none
  std::size_t stride = 1;      // every how many columns it has a sample
};

struct Solution {
  tessaline_calibration calibration{};
  std::vector<Fit> fits;
  std::size_t samples = 0;
  std::size_t outliers = 0;
  double error_pixels = 0;  // root mean square of all samples
  double error_mm = 0;
  std::size_t corners = 0;  // measured: edges of treads
  double corner_error = 0;  // root mean square of them, columns
  std::array<Problem::Prior, Problem::kPriors> priors{};
};

// Throws a Failure if a head cannot be calibrated from so many views.
void RequireViews(std::size_t views);

// Finds the least squares from a first guess. Throws a Failure if it does not within so many
// evaluations of the equations.
void Minimise(const Problem& problem, Eigen::VectorXd& input, int most_evaluations = 2000);

// Solves for the head by Levenberg and Marquardt's method. Throws a Failure if there are too few
// views, or if they do not determine the head.
Solution Solve(unsigned sensor_width, unsigned sensor_height, const Target& target,
               std::vector<Sight> sights);

}  // namespace tool::calibrate
