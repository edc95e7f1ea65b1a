#include "calibrate/Solve.h"

#include <fmt/core.h>

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <unsupported/Eigen/NonLinearOptimization>

#include "Failure.h"
#include "calibrate/Field.h"

namespace tool::calibrate {
namespace {

using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kOutlier = 4.5;        // standard deviations
constexpr double kMostOutliers = 0.2;   // of the samples
constexpr double kMostRowError = 0.5;   // pixels
constexpr double kMostCornerError = 2;  // columns
constexpr double kMostScatter = 1;      // pixels, of a line at rest
// The mean of some profiles is off by its noise, by the laser's speckle at rest, and by what is
// wrong with the target.
constexpr double kMostOverNoise = 4;
constexpr double kSpeckleAtRest = 0.03;  // pixels

[[noreturn]] void RefuseViews(const std::string& what) {
  throw Failure(ExitCode::kUsage, "the views do not determine the head: " + what,
                "take the target at several heights and tilts, across the whole field of view");
}

// What the samples cover, in pixels.
struct Cover {
  double left = HUGE_VAL, right = -HUGE_VAL, top = HUGE_VAL, bottom = -HUGE_VAL;

  explicit Cover(const std::vector<Sight>& sights) {
    for (const Sight& sight : sights) {
      for (const Piece& piece : sight.outline.pieces) {
        for (std::size_t i = piece.begin; i < piece.end; ++i) {
          const Sample& sample = sight.view.samples[i];
          left = std::min(left, sample.column);
          right = std::max(right, sample.column);
          top = std::min(top, sample.row);
          bottom = std::max(bottom, sample.row);
        }
      }
    }
  }
};

// Calls use(column, row) for some hundred of the places where the target was seen.
template <typename Use>
void ForPlaces(const std::vector<Sight>& sights, Use use) {
  constexpr std::size_t kPerView = 24;
  for (const Sight& sight : sights) {
    for (const Piece& piece : sight.outline.pieces) {
      const std::size_t stride = sight.view.samples.size() / kPerView + 1;
      for (std::size_t i = piece.begin + stride / 2; i < piece.end; i += stride) {
        use(sight.view.samples[i].column, sight.view.samples[i].row);
      }
    }
  }
}

// Variances at one place: of the head's part in a coordinate, and of the row's part.
struct Variance {
  double head;
  double row;
};

// One sigma of the head for the whole field: with it, as many points of the field lie within two
// standard deviations as if each place had its own.
double SigmaForField(const std::vector<Variance>& places) {
  const double wanted = std::erf(std::sqrt(2.0));
  double low = 0;
  double high = 0;
  for (const Variance& place : places) high = std::max(high, std::sqrt(place.head));
  for (int i = 0; i < 60; ++i) {
    const double sigma = (low + high) / 2;
    double within = 0;
    for (const Variance& place : places) {
      // Two of the stated standard deviations, by the true one.
      const double stated = std::sqrt((sigma * sigma + place.row) / (place.head + place.row));
      within += std::erf(std::sqrt(2.0) * stated) / static_cast<double>(places.size());
    }
    (within < wanted ? low : high) = sigma;
  }
  return high;
}

// The uncertainty of the head's parameters, taken through the derivatives of x and z by them.
void SetSigmas(const Problem& problem, const VectorXd& input, tessaline_calibration& calibration) {
  MatrixXd jacobian(problem.values(), problem.inputs());
  problem.df(input, jacobian);
  // Parameters differ in size by orders of magnitude.
  const VectorXd scale = jacobian.colwise().norm().cwiseMax(1e-300).cwiseInverse();
  const MatrixXd scaled = jacobian * scale.asDiagonal();
  const Eigen::LDLT<MatrixXd> normal(scaled.transpose() * scaled);
  if (normal.info() != Eigen::Success || !(normal.rcond() > 1e-15)) {
    RefuseViews("some of its parameters could have any value");
  }
  const MatrixXd covariance = scale.asDiagonal() *
                              normal.solve(MatrixXd::Identity(input.size(), input.size())) *
                              scale.asDiagonal();

  std::vector<Variance> x_variances;
  std::vector<Variance> z_variances;
  double x_low = HUGE_VAL, x_high = -HUGE_VAL, z_low = HUGE_VAL, z_high = -HUGE_VAL;
  ForPlaces(problem.sights(), [&](double column, double row) {
    tessaline_measurement point{};
    tessaline_point_to_mm(&calibration, column, row, &point);
    const bool outside_field = std::isnan(point.x_sigma);
    if (outside_field) return;
    Eigen::Matrix<double, 2, Problem::kHead> by_parameter;
    for (int k = 0; k < Problem::kHead; ++k) {
      const double step = std::max(std::abs(input[k]), 1e-3) * 1e-5;
      VectorXd moved = input;
      tessaline_measurement above{};
      tessaline_measurement below{};
      moved[k] = input[k] + step;
      const tessaline_calibration up = problem.Calibration(moved);
      moved[k] = input[k] - step;
      const tessaline_calibration down = problem.Calibration(moved);
      if (tessaline_point_to_mm(&up, column, row, &above) != 0 ||
          tessaline_point_to_mm(&down, column, row, &below) != 0) {
        RefuseViews("it would not see its whole field");
      }
      by_parameter(0, k) = (above.x - below.x) / (2 * step);
      by_parameter(1, k) = (above.z - below.z) / (2 * step);
      x_low = std::min(x_low, above.x);
      x_high = std::max(x_high, above.x);
      z_low = std::min(z_low, above.z);
      z_high = std::max(z_high, above.z);
    }
    const Eigen::Matrix2d here = by_parameter *
                                 covariance.topLeftCorner(Problem::kHead, Problem::kHead) *
                                 by_parameter.transpose();
    x_variances.push_back({here(0, 0), std::pow(calibration.row_sigma * point.x_row, 2)});
    z_variances.push_back({here(1, 1), std::pow(calibration.row_sigma * point.z_row, 2)});
  });
  calibration.x_sigma = SigmaForField(x_variances);
  calibration.z_sigma = SigmaForField(z_variances);

  constexpr double kMostOfField = 0.01;
  const auto require = [](double sigma, double size, const char* name) {
    if (sigma <= kMostOfField * size) return;
    RefuseViews(fmt::format("{} would be uncertain by {:.2f} mm in a field of {:.1f} mm", name,
                            sigma, size));
  };
  require(calibration.x_sigma, x_high - x_low, "x");
  require(calibration.z_sigma, z_high - z_low, "z");
}

// How well each view and all together fit.
void SetErrors(const Problem& problem, const VectorXd& input, Solution& solution) {
  constexpr std::size_t kBins = 48;
  const double width = solution.calibration.sensor_width;
  struct Sum {
    double pixels = 0, mm = 0, count = 0;  // squares
    std::array<double, kBins> across{}, counts{};
  };
  std::vector<Sum> sums(problem.sights().size());
  double all = 0;
  for (const Problem::Error& error : problem.Errors(input)) {
    Sum& sum = sums[error.sight];
    sum.pixels += error.pixels * error.pixels;
    sum.mm += error.mm * error.mm;
    sum.count += 1;
    const auto bin = static_cast<std::size_t>(error.column / width * kBins);
    sum.across[std::min(bin, kBins - 1)] += error.mm;
    sum.counts[std::min(bin, kBins - 1)] += 1;
    solution.error_pixels += error.pixels * error.pixels;
    solution.error_mm += error.mm * error.mm;
    all += 1;
  }
  // The solver has used up as many residuals as it has unknowns.
  const double free = std::max(all - problem.inputs(), 1.0);
  solution.error_pixels = std::sqrt(solution.error_pixels / free);
  solution.error_mm = std::sqrt(solution.error_mm / free);
  for (std::size_t i = 0; i < sums.size(); ++i) {
    const Sum& sum = sums[i];
    Fit fit{problem.sights()[i].view.name,
            std::sqrt(sum.pixels / std::max(sum.count, 1.0)),
            std::sqrt(sum.mm / std::max(sum.count, 1.0)),
            {},
            problem.StrideOf(i)};
    // 0 / 0, where there are none, is the NaN that is promised.
    for (std::size_t k = 0; k < kBins; ++k) fit.across.push_back(sum.across[k] / sum.counts[k]);
    solution.fits.push_back(std::move(fit));
  }
  const std::vector<double> corners = problem.CornerErrors(input);
  solution.corners = corners.size();
  for (const double off : corners) solution.corner_error += off * off;
  if (!corners.empty()) {
    solution.corner_error = std::sqrt(solution.corner_error / static_cast<double>(corners.size()));
  }
  solution.priors = problem.Priors(solution.calibration);
}

void RequireCover(const Problem& problem, unsigned sensor_width, unsigned sensor_height) {
  constexpr double kLeastWidth = 0.5;
  constexpr double kLeastHeight = 0.25;
  const Cover cover(problem.sights());
  if (cover.right - cover.left < kLeastWidth * sensor_width) {
    RefuseViews(fmt::format("they only cover columns {:.0f} to {:.0f} of {}", cover.left,
                            cover.right, sensor_width));
  }
  if (cover.bottom - cover.top < kLeastHeight * sensor_height) {
    RefuseViews(fmt::format("they only cover rows {:.0f} to {:.0f} of {}", cover.top, cover.bottom,
                            sensor_height));
  }
}

// The noise of the rows, averaged over a view's profiles: what residuals should be. Nothing if no
// view has enough profiles to tell.
std::optional<double> ExpectedError(const std::vector<Sight>& sights) {
  constexpr double kEnough = 3;  // profiles
  double squares = 0;
  for (const Sight& sight : sights) {
    if (sight.view.profiles < kEnough) return std::nullopt;
    squares += sight.view.scatter * sight.view.scatter / sight.view.profiles;
  }
  return std::sqrt(squares / static_cast<double>(sights.size()));
}

// A target of another size than given bends until it nearly fits; residuals tell.
void RequireFit(const Problem& problem, const Solution& solution) {
  const auto refuse = [](const std::string& what) {
    throw Failure(ExitCode::kUsage, "the target does not explain what was seen: " + what,
                  "are its shape and size those given, and is it the right model?");
  };
  if (problem.corner_sigma() > kMostCornerError) {
    refuse(fmt::format("edges are {:.1f} columns off", problem.corner_sigma()));
  }
  if (!(solution.error_pixels < kMostRowError)) {
    refuse(fmt::format("points are {:.2f} pixels off", solution.error_pixels));
  }
  const auto expected = ExpectedError(problem.sights());
  if (expected && solution.error_pixels > kMostOverNoise * *expected + kSpeckleAtRest) {
    refuse(fmt::format("points are {:.2f} pixels off, and their noise is {:.2f}",
                       solution.error_pixels, *expected));
  }
}

// A target whose place nobody knows tells its own frame: that of the first view.
void FixFrame(const Target& target, std::vector<Sight>& sights) {
  const bool plane = target.kind == Target::Kind::kPlane;
  for (Sight& sight : sights) {
    // Which of its teeth a place speaks of, nobody can say.
    if (target.kind == Target::Kind::kSawtooth && sight.pose.z) {
      throw Failure(ExitCode::kUsage, "a sawtooth tells its place itself",
                    "leave out --at, which is for plane and stairs");
    }
    if (plane && !(sight.pose.z && sight.pose.tilt)) {
      throw Failure(ExitCode::kUsage,
                    "a plane says nothing about millimetres unless its height and tilt are known",
                    "give --at HEIGHT,TILT once for each file, or take a sawtooth or stairs");
    }
    if (plane) sight.pose.x = sight.pose.x.value_or(0);  // a plane looks the same everywhere
  }
  Pose& first = sights.front().pose;
  first.x = first.x.value_or(0);
  first.z = first.z.value_or(0);
  first.tilt = first.tilt.value_or(0);
}

}  // namespace

void RequireViews(std::size_t views) {
  constexpr std::size_t kFewest = 3;
  constexpr std::size_t kMost = 100;  // two minutes and half a gigabyte
  if (views < kFewest) {
    throw Failure(ExitCode::kUsage, fmt::format("{} views are too few to calibrate a head", views),
                  "take the target at three or more heights, some of them tilted");
  }
  if (views > kMost) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("{} views are too many: at most {} are solved at once", views, kMost),
                  "leave out some that are near others");
  }
}

void Minimise(const Problem& problem, VectorXd& input, int most_evaluations) {
  using Eigen::LevenbergMarquardtSpace::Status;
  Problem functor = problem;
  Eigen::LevenbergMarquardt<Problem> solver(functor);
  solver.parameters.maxfev = most_evaluations;
  solver.parameters.xtol = 1e-12;
  solver.parameters.ftol = 1e-14;
  const auto refuse = [](const std::string& what) {
    throw Failure(ExitCode::kUsage, "the solver found no calibration: " + what,
                  "is the target's shape the given one, and is each view of it sharp?");
  };
  switch (solver.minimize(input)) {
    case Status::RelativeReductionTooSmall:
    case Status::RelativeErrorTooSmall:
    case Status::RelativeErrorAndReductionTooSmall:
    case Status::CosinusTooSmall:
    // As near as numbers can tell.
    case Status::FtolTooSmall:
    case Status::XtolTooSmall:
    case Status::GtolTooSmall:
      return;
    case Status::TooManyFunctionEvaluation:
      refuse(fmt::format("it still improves after {} steps", most_evaluations));
      return;
    default:
      refuse("the equations have no solution");
  }
}

Solution Solve(unsigned sensor_width, unsigned sensor_height, const Target& target,
               std::vector<Sight> sights) {
  RequireViews(sights.size());
  FixFrame(target, sights);
  for (Sight& sight : sights) {
    if (sight.view.scatter > kMostScatter) {
      throw Failure(ExitCode::kUsage,
                    fmt::format("{}: rows differ by {:.1f} pixels from profile to profile",
                                sight.view.name, sight.view.scatter),
                    "the target must be at rest while it is captured");
    }
    sight.outline = TakeApart(sight.view, target, sensor_width / 2.0);
  }
  Problem problem(sensor_width, sensor_height, target, std::move(sights));
  RequireCover(problem, sensor_width, sensor_height);
  VectorXd input = problem.Guess();
  if (problem.values() <= problem.inputs()) RefuseViews("there are too few points");

  Solution solution;
  const std::size_t before = problem.Samples();
  for (int round = 0; round < 4; ++round) {
    Minimise(problem, input);
    problem.WeighBy(input);
    solution.outliers += problem.DropOutliers(input, kOutlier);
  }
  Minimise(problem, input);
  if (static_cast<double>(solution.outliers) > kMostOutliers * static_cast<double>(before)) {
    throw Failure(
        ExitCode::kUsage,
        fmt::format("{} of {} points do not lie on the target", solution.outliers, before),
        "is the target that of the file, and nothing else in view?");
  }
  solution.samples = problem.Samples();
  solution.calibration = problem.Calibration(input);
  SetErrors(problem, input, solution);
  RequireFit(problem, solution);

  double scatter = 0;  // of one profile against the mean of its view
  for (const Sight& sight : problem.sights()) {
    const View& view = sight.view;
    scatter += view.scatter * view.scatter * (1 - 1 / view.profiles) /
               static_cast<double>(problem.sights().size());
  }
  solution.calibration.row_sigma = std::hypot(solution.error_pixels, std::sqrt(scatter));
  SetField(problem.Places(), solution.calibration);
  SetSigmas(problem, input, solution.calibration);
  if (tessaline_calibration_check(&solution.calibration) != 0) {
    RefuseViews("no lens distorts like this");
  }
  return solution;
}

}  // namespace tool::calibrate
