#include "calibrate/Problem.h"

#include <Eigen/Geometry>
#include <Eigen/QR>
#include <Eigen/SVD>
#include <algorithm>
#include <array>
#include <cmath>

#include "Failure.h"

namespace tool::calibrate {
namespace {

using Eigen::Vector2d;
using Eigen::VectorXd;

// The inputs of the head.
constexpr int kPlane = 0;
constexpr int kPlaneNumbers = 8;
constexpr int kDistortion = 8;
constexpr int kCentre = 11;

// Standard deviations of a head's distortion and of its centre, as a part of the sensor's width.
constexpr double kUsualDistortion = 0.3;
constexpr double kUsualCentre = 0.02;

// The edge of a tread lies anywhere between two columns, and one further when a point is missing or
// the wall below shows.
constexpr double kLeastCornerSigma = 0.5;
constexpr double kLeastRowSigma = 1e-4;  // simulated rows have no noise

// For what cannot be measured: far off, but finite.
constexpr double kFarOff = 1e4;

constexpr std::size_t kMostSamplesPerSight = 1000;

// So that the image is about as large as -1 .. 1.
double PixelsPerUnit(unsigned width) { return width / 2.0; }

}  // namespace

struct Problem::Placement {
  Vector2d shift;
  double cosine;
  double sine;

  // A vector of the laser plane in the target's frame.
  Vector2d Turned(const Vector2d& v) const {
    return {cosine * v.x() + sine * v.y(), -sine * v.x() + cosine * v.y()};
  }
};

Problem::Problem(unsigned sensor_width, unsigned sensor_height, const Target& target,
                 std::vector<Sight> sights)
    : width_(sensor_width), height_(sensor_height), target_(target), sights_(std::move(sights)) {
  for (std::size_t i = 0; i < sights_.size(); ++i) {
    const Pose& pose = sights_[i].pose;
    first_.push_back(inputs_);
    inputs_ += !pose.x + !pose.z + !pose.tilt;
    std::size_t count = 0;
    for (const Piece& piece : sights_[i].outline.pieces) count += piece.end - piece.begin;
    const std::size_t stride = count / kMostSamplesPerSight + 1;
    strides_.push_back(stride);
    row_sigmas_.push_back(1);
    for (const Piece& piece : sights_[i].outline.pieces) {
      for (std::size_t k = piece.begin; k < piece.end; k += stride) {
        const Sample& sample = sights_[i].view.samples[k];
        samples_.push_back({i, piece.facet, sample.column, sample.row});
      }
    }
  }
  CountValues();
}

void Problem::CountValues() {
  values_ = static_cast<int>(samples_.size()) + kPriors;
  for (const Sight& sight : sights_) {
    if (sight.outline.corners_are_measured) {
      values_ += static_cast<int>(sight.outline.corners.size());
    }
  }
}

tessaline_calibration Problem::Calibration(const InputType& input) const {
  tessaline_calibration head{};
  head.sensor_width = width_;
  head.sensor_height = height_;
  head.pixels_per_unit = PixelsPerUnit(width_);
  std::copy_n(input.data() + kPlane, kPlaneNumbers, head.plane);
  head.plane[kPlaneNumbers] = 1;
  std::copy_n(input.data() + kDistortion, 3, head.distortion);
  head.centre_column = input[kCentre];
  head.centre_row = input[kCentre + 1];
  return head;
}

Problem::Placement Problem::PlacementOf(const InputType& input, std::size_t sight) const {
  const Pose& pose = sights_[sight].pose;
  int next = first_[sight];
  const double x = pose.x ? *pose.x : input[next++];
  const double z = pose.z ? *pose.z : input[next++];
  const double tilt = pose.tilt ? *pose.tilt : input[next];
  return {{x, z}, std::cos(tilt), std::sin(tilt)};
}

double Problem::Residual(const tessaline_calibration& head, const Placement& placement,
                         const Placed& sample) const {
  tessaline_measurement point{};
  if (tessaline_point_to_mm(&head, sample.column, sample.row, &point) != 0) return kFarOff;
  const Facet& facet = target_.facets[sample.facet];
  const Vector2d along = (facet.end - facet.begin).normalized();
  const Vector2d normal(-along.y(), along.x());
  const Vector2d place = placement.Turned(Vector2d(point.x, point.z) - placement.shift);
  const double per_row = normal.dot(placement.Turned({point.x_row, point.z_row}));
  const double pixels = normal.dot(place - facet.begin) / per_row;
  return std::isfinite(pixels) ? std::clamp(pixels, -kFarOff, kFarOff) : kFarOff;
}

double Problem::CornerResidual(const tessaline_calibration& head, const Placement& placement,
                               const Corner& corner) const {
  tessaline_measurement point{};
  if (tessaline_point_to_mm(&head, corner.column, corner.row, &point) != 0) return kFarOff;
  const Vector2d place = placement.Turned(Vector2d(point.x, point.z) - placement.shift);
  const double per_column = placement.Turned({point.x_column, point.z_column}).x();
  const double pixels = (place.x() - corner.place.x()) / per_column;
  return std::isfinite(pixels) ? std::clamp(pixels, -kFarOff, kFarOff) : kFarOff;
}

int Problem::operator()(const InputType& input, ValueType& value) const {
  Evaluate(input, 0, sights_.size(), value);
  return 0;
}

void Problem::Evaluate(const InputType& input, std::size_t begin, std::size_t end,
                       ValueType& value) const {
  const tessaline_calibration head = Calibration(input);
  std::vector<Placement> placements;
  for (std::size_t i = 0; i < sights_.size(); ++i) placements.push_back(PlacementOf(input, i));
  const auto asked = [&](std::size_t sight) { return sight >= begin && sight < end; };
  int next = 0;
  for (const Placed& sample : samples_) {
    const std::size_t i = sample.sight;
    if (asked(i)) value[next] = Residual(head, placements[i], sample) / row_sigmas_[i];
    ++next;
  }
  for (std::size_t i = 0; i < sights_.size(); ++i) {
    if (!sights_[i].outline.corners_are_measured) continue;
    for (const Corner& corner : sights_[i].outline.corners) {
      if (asked(i)) value[next] = CornerResidual(head, placements[i], corner) / corner_sigma_;
      ++next;
    }
  }
  for (const Prior& prior : Priors(head)) value[next++] = prior.Off();
}

std::array<Problem::Prior, Problem::kPriors> Problem::Priors(
    const tessaline_calibration& head) const {
  const double centre = kUsualCentre * width_;
  return {{{"k1", 0, kUsualDistortion, head.distortion[0]},
           {"k2", 0, kUsualDistortion, head.distortion[1]},
           {"k3", 0, kUsualDistortion, head.distortion[2]},
           {"centre_column", width_ / 2.0, centre, head.centre_column},
           {"centre_row", height_ / 2.0, centre, head.centre_row}}};
}

// Central differences. Poses are often near 0, where a step in proportion would be lost in
// rounding.
int Problem::df(const InputType& input, JacobianType& jacobian) const {
  constexpr double kStep = 1e-6;  // mm, radians; pixels and map in proportion
  InputType moved = input;
  ValueType above = ValueType::Zero(values_);
  ValueType below = ValueType::Zero(values_);
  for (int k = 0; k < inputs_; ++k) {
    // A pose moves its own sight only.
    std::size_t begin = 0;
    std::size_t end = sights_.size();
    if (k >= kHead) {
      end = static_cast<std::size_t>(std::upper_bound(first_.begin(), first_.end(), k) -
                                     first_.begin());
      begin = end - 1;
      above.setZero();
      below.setZero();
    }
    const double step = kStep * std::max(std::abs(input[k]), 1.0);
    moved[k] = input[k] + step;
    Evaluate(moved, begin, end, above);
    moved[k] = input[k] - step;
    Evaluate(moved, begin, end, below);
    moved[k] = input[k];
    jacobian.col(k) = (above - below) / (2 * step);
  }
  return 0;
}

void Problem::WeighBy(const InputType& input) {
  const std::vector<double> corners = CornerErrors(input);
  double squares = 0;
  for (const double off : corners) squares += off * off / static_cast<double>(corners.size());
  if (!corners.empty()) corner_sigma_ = std::max(std::sqrt(squares), kLeastCornerSigma);
  // A view's own: the mean of more profiles has less noise.
  std::vector<double> counts(sights_.size());
  row_sigmas_.assign(sights_.size(), 0);
  for (const Error& error : Errors(input)) {
    row_sigmas_[error.sight] += error.pixels * error.pixels;
    counts[error.sight] += 1;
  }
  for (std::size_t i = 0; i < sights_.size(); ++i) {
    const double free = std::max(counts[i] - inputs_ / static_cast<double>(sights_.size()), 1.0);
    row_sigmas_[i] = std::max(std::sqrt(row_sigmas_[i] / free), kLeastRowSigma);
  }
}

std::size_t Problem::DropOutliers(const InputType& input, double sigmas) {
  const tessaline_calibration head = Calibration(input);
  const std::size_t before = samples_.size();
  std::erase_if(samples_, [&](const Placed& sample) {
    return std::abs(Residual(head, PlacementOf(input, sample.sight), sample)) >
           sigmas * row_sigmas_[sample.sight];
  });
  for (std::size_t i = 0; i < sights_.size(); ++i) {
    Outline& outline = sights_[i].outline;
    if (!outline.corners_are_measured) continue;
    std::erase_if(outline.corners, [&](const Corner& corner) {
      return std::abs(CornerResidual(head, PlacementOf(input, i), corner)) > sigmas * corner_sigma_;
    });
  }
  CountValues();
  return before - samples_.size();
}

std::vector<Problem::Error> Problem::Errors(const InputType& input) const {
  const tessaline_calibration head = Calibration(input);
  std::vector<Error> errors;
  for (const Placed& sample : samples_) {
    tessaline_measurement point{};
    const bool seen = tessaline_point_to_mm(&head, sample.column, sample.row, &point) == 0;
    const double pixels = Residual(head, PlacementOf(input, sample.sight), sample);
    const double mm = seen ? pixels * std::hypot(point.x_row, point.z_row) : 0;
    errors.push_back({sample.sight, sample.column, pixels, mm});
  }
  return errors;
}

std::vector<double> Problem::CornerErrors(const InputType& input) const {
  const tessaline_calibration head = Calibration(input);
  std::vector<double> errors;
  for (std::size_t i = 0; i < sights_.size(); ++i) {
    if (!sights_[i].outline.corners_are_measured) continue;
    for (const Corner& corner : sights_[i].outline.corners) {
      errors.push_back(CornerResidual(head, PlacementOf(input, i), corner));
    }
  }
  return errors;
}

std::vector<Sample> Problem::Places() const {
  std::vector<Sample> places;
  for (const Placed& sample : samples_) places.push_back({sample.column, sample.row});
  return places;
}

Eigen::Vector3d Problem::ImagePoint(double column, double row) const {
  const double unit = PixelsPerUnit(width_);
  return {(column - width_ / 2.0) / unit, (row - height_ / 2.0) / unit, 1};
}

Problem::InputType Problem::Guess() const {
  InputType guess = target_.kind == Target::Kind::kPlane ? GuessFromPlanes() : GuessFromCorners();
  guess[kCentre] = width_ / 2.0;
  guess[kCentre + 1] = height_ / 2.0;
  return guess;
}

// The first view gives the map; with it, the others give their poses.
Problem::InputType Problem::GuessFromCorners() const {
  const auto corners_of = [this](std::size_t i) -> const std::vector<Corner>& {
    return sights_[i].outline.corners;
  };
  const auto refuse = [this](std::size_t i) {
    throw Failure(ExitCode::kUsage, sights_[i].view.name + ": too few corners of the target",
                  "show more of it: at least three corners at two heights");
  };
  InputType guess = InputType::Zero(inputs_);
  for (std::size_t i = 0; i < sights_.size(); ++i) {
    const std::vector<Corner>& corners = corners_of(i);
    const auto count = static_cast<Eigen::Index>(corners.size());
    if (count < 3) refuse(i);
    Eigen::MatrixXd image(count, 3);
    Eigen::MatrixXd places(count, 2);
    for (Eigen::Index n = 0; n < count; ++n) {
      const Corner& corner = corners[static_cast<std::size_t>(n)];
      image.row(n) = ImagePoint(corner.column, corner.row);
      places.row(n) = corner.place;
    }
    if (i == 0) {
      // Where the first view's pose is not known, it is the origin.
      const Eigen::ColPivHouseholderQR<Eigen::MatrixXd> solver(image);
      if (solver.rank() < 3) refuse(i);
      const Pose& pose = sights_[i].pose;
      const Eigen::Rotation2Dd turn(pose.tilt.value_or(0));
      const Vector2d shift(pose.x.value_or(0), pose.z.value_or(0));
      for (Eigen::Index n = 0; n < count; ++n) {
        places.row(n) = (turn * Vector2d(places.row(n).transpose()) + shift).transpose();
      }
      const Eigen::MatrixXd map = solver.solve(places);  // 3 x 2
      for (int k = 0; k < 3; ++k) {
        guess[kPlane + k] = map(k, 0);
        guess[kPlane + 3 + k] = map(k, 1);
      }
    }
    Eigen::Matrix<double, 2, 3> map;
    map << guess[0], guess[1], guess[2], guess[3], guess[4], guess[5];
    const Eigen::MatrixXd seen = map * image.transpose();  // 2 x count
    const Eigen::Matrix3d pose = Eigen::umeyama(places.transpose(), seen, /*scaling=*/false);
    int next = first_[i];
    const Pose& known = sights_[i].pose;
    if (i == 0) continue;
    if (!known.x) guess[next++] = pose(0, 2);
    if (!known.z) guess[next++] = pose(1, 2);
    if (!known.tilt) guess[next] = std::atan2(pose(1, 0), pose(0, 0));
  }
  return guess;
}

// Where a plane stands, one combination of x and z is known.
Problem::InputType Problem::GuessFromPlanes() const {
  const auto rows = static_cast<Eigen::Index>(samples_.size());
  Eigen::MatrixXd equations(rows, 6);
  VectorXd heights(rows);
  for (Eigen::Index i = 0; i < rows; ++i) {
    const Placed& sample = samples_[static_cast<std::size_t>(i)];
    const Pose& pose = sights_[sample.sight].pose;
    const double sine = std::sin(*pose.tilt);
    const double cosine = std::cos(*pose.tilt);
    const Eigen::RowVector3d image = ImagePoint(sample.column, sample.row);
    equations.row(i) << -sine * image, cosine * image;
    heights[i] = -sine * *pose.x + cosine * *pose.z;
  }
  const Eigen::ColPivHouseholderQR<Eigen::MatrixXd> solver(equations);
  if (solver.rank() < 6) {
    throw Failure(ExitCode::kUsage, "the views of the plane do not determine the head",
                  "take it at several heights and at tilts to both sides: flat views alone say "
                  "nothing about x");
  }
  InputType guess = InputType::Zero(inputs_);
  guess.head<6>() = solver.solve(heights);
  return guess;
}

}  // namespace tool::calibrate
