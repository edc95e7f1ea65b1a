#pragma once

#include <Eigen/Core>
#include <array>
#include <optional>
#include <vector>

#include "calibrate/Outline.h"
#include "tessaline/profile.h"

namespace tool::calibrate {

// Where a target stood in the laser plane: turned about its origin, then shifted. What is not known
// is solved for.
struct Pose {
  std::optional<double> x;     // mm
  std::optional<double> z;     // mm
  std::optional<double> tilt;  // radians, from x towards z
};

// A view that takes part in a calibration.
struct Sight {
  View view;
  Outline outline;
  Pose pose;
};

// The equations: every sample lies on its facet, every measured corner at its place. Residuals are
// in standard deviations. The functor that Eigen's solver wants.
class Problem {
 public:
  using Scalar = double;
  using InputType = Eigen::VectorXd;
  using ValueType = Eigen::VectorXd;
  using JacobianType = Eigen::MatrixXd;
  enum { InputsAtCompileTime = Eigen::Dynamic, ValuesAtCompileTime = Eigen::Dynamic };

  // Parameters of the head: 8 of the projective map, 3 of the distortion, 2 of its centre.
  static constexpr int kHead = 13;

  Problem(unsigned sensor_width, unsigned sensor_height, const Target& target,
          std::vector<Sight> sights);

  int inputs() const { return inputs_; }
  int values() const { return values_; }
  // These two are what Eigen's solver calls; the results are 0.
  int operator()(const InputType& input, ValueType& value) const;
  int df(const InputType& input, JacobianType& jacobian) const;

  // The first guess: a map without perspective and distortion. Throws a Failure if the views do
  // not even give that.
  InputType Guess() const;

  // Standard deviations in pixels, by which samples and corners count: those of the residuals, but
  // at least what each can be known to.
  void WeighBy(const InputType& input);
  double corner_sigma() const { return corner_sigma_; }
  // Leaves out samples that are more standard deviations off. Returns how many.
  std::size_t DropOutliers(const InputType& input, double sigmas);

  // How far a sample is from its facet, along its column.
  struct Error {
    std::size_t sight;
    double column;
    double pixels;
    double mm;
  };
  std::vector<Error> Errors(const InputType& input) const;
  // The same of the measured corners, in columns.
  std::vector<double> CornerErrors(const InputType& input) const;

  // What is known of a head before it is calibrated keeps what the views hardly show near it.
  struct Prior {
    const char* name;
    double usual;
    double sigma;
    double solved;
    double Off() const { return (solved - usual) / sigma; }
  };
  static constexpr int kPriors = 5;
  std::array<Prior, kPriors> Priors(const tessaline_calibration& head) const;

  tessaline_calibration Calibration(const InputType& input) const;
  const std::vector<Sight>& sights() const { return sights_; }
  std::size_t Samples() const { return samples_.size(); }
  // Where on the sensor the target was seen, as far as that is used.
  std::vector<Sample> Places() const;
  // Every how many columns a sight has a sample.
  std::size_t StrideOf(std::size_t sight) const { return strides_[sight]; }

 private:
  struct Placed {
    std::size_t sight;
    std::size_t facet;
    double column;
    double row;
  };
  struct Placement;  // a pose with numbers

  void CountValues();
  // Of these sights only; what other sights have stays.
  void Evaluate(const InputType& input, std::size_t begin, std::size_t end, ValueType& value) const;
  Placement PlacementOf(const InputType& input, std::size_t sight) const;
  double Residual(const tessaline_calibration& head, const Placement& placement,
                  const Placed& sample) const;
  double CornerResidual(const tessaline_calibration& head, const Placement& placement,
                        const Corner& corner) const;
  InputType GuessFromCorners() const;
  InputType GuessFromPlanes() const;
  Eigen::Vector3d ImagePoint(double column, double row) const;

  unsigned width_;
  unsigned height_;
  Target target_;
  std::vector<Sight> sights_;
  std::vector<Placed> samples_;
  std::vector<std::size_t> strides_;
  std::vector<int> first_;          // input of each sight's unknown pose
  std::vector<double> row_sigmas_;  // of each sight
  double corner_sigma_ = 1;
  int inputs_ = kHead;
  int values_ = 0;
};

}  // namespace tool::calibrate
