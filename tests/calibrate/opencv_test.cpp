// A second opinion: the same head, solved by OpenCV's implementation of Levenberg and Marquardt's
// method, with the equations written down once more.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/calib3d.hpp>
#include <vector>

#include "Heads.h"

namespace tessaline_test {
namespace {

constexpr int kHead = 13;  // map, distortion, centre
constexpr double kPitch = 8;
constexpr double kDepth = 4;

struct Mm {
  double x, z;
};

Mm ToMm(const double* p, double column, double row) {
  const double half = kWidth / 2.0;
  const double u = (column - half * (1 + p[11])) / half;
  const double v = (row - kHeight / 2.0 - half * p[12]) / half;
  const double q = u * u + v * v;
  const double grown = 1 + q * (p[8] + q * (p[9] + q * p[10]));
  const double a = u * grown;
  const double b = v * grown;
  const double w = p[6] * a + p[7] * b + 1;
  return {(p[0] * a + p[1] * b + p[2]) / w, (p[3] * a + p[4] * b + p[5]) / w};
}

// A point of a view, and the side of the tooth it lies on: the truth tells.
struct Seen {
  int view;
  double column, row;
  double side_s;  // where its line crosses h = 0
  double slope;
};

class Equations : public cv::LMSolver::Callback {
 public:
  explicit Equations(std::vector<Seen> points) : points_(std::move(points)) {}

  bool compute(cv::InputArray parameters, cv::OutputArray errors,
               cv::OutputArray jacobian) const override {
    const cv::Mat p = parameters.getMat();
    const cv::Mat e = Errors(p);
    e.copyTo(errors);
    if (!jacobian.needed()) return true;
    jacobian.create(e.rows, p.rows, CV_64F);
    cv::Mat j = jacobian.getMat();
    for (int k = 0; k < p.rows; ++k) {
      constexpr double kStep = 1e-6;
      cv::Mat up = p.clone();
      cv::Mat down = p.clone();
      up.at<double>(k) += kStep;
      down.at<double>(k) -= kStep;
      const cv::Mat difference = (Errors(up) - Errors(down)) / (2 * kStep);
      difference.copyTo(j.col(k));
    }
    return true;
  }

 private:
  cv::Mat Errors(const cv::Mat& p) const {
    cv::Mat e(static_cast<int>(points_.size()), 1, CV_64F);
    for (std::size_t i = 0; i < points_.size(); ++i) {
      const Seen& seen = points_[i];
      Mm at = ToMm(p.ptr<double>(), seen.column, seen.row);
      if (seen.view > 0) {  // the first view is the frame
        const double* pose = p.ptr<double>() + kHead + 3 * (seen.view - 1);
        const double x = at.x - pose[0];
        const double z = at.z - pose[1];
        at = {std::cos(pose[2]) * x + std::sin(pose[2]) * z,
              -std::sin(pose[2]) * x + std::cos(pose[2]) * z};
      }
      e.at<double>(static_cast<int>(i)) =
          (at.z - seen.slope * (at.x - seen.side_s)) / std::hypot(1, seen.slope);
    }
    return e;
  }

  std::vector<Seen> points_;
};

// The poses as numbers.
struct Pose {
  double x, z, degrees;
};
constexpr Pose kNumbers[]{{0, 0, 0},  {1, 5, 2},  {0, 9, -4}, {2, 13, 6},
                          {0, 2, -8}, {0, 10, 9}, {-3, 6, 0}};

TEST(OpenCv, FindsTheSameHead) {
  constexpr std::uint64_t kSeed = 3;
  std::vector<Seen> points;
  for (std::size_t view = 0; view < kPoses.size(); ++view) {
    const Pose& pose = kNumbers[view];
    const double tilt = pose.degrees * CV_PI / 180;
    const auto line = Look(kSeed, "sawtooth" + kPoses[view], 1, 0);
    for (std::size_t i = 0; i < line.samples.size(); i += 3) {
      const auto& sample = line.samples[i];
      Mm at{};
      tessaline_board_head_to_mm(kSeed, kWidth, kHeight, sample.column, sample.row, &at.x, &at.z);
      const double s = std::cos(tilt) * (at.x - pose.x) + std::sin(tilt) * (at.z - pose.z);
      const double half = std::floor(s / (kPitch / 2));
      const double beyond = s - half * kPitch / 2;
      if (beyond < 0.2 || beyond > kPitch / 2 - 0.2) continue;  // too near to a vertex
      const bool rises = std::fmod(std::abs(half), 2) == 0;
      const double slope = (rises ? 1 : -1) * kDepth / (kPitch / 2);
      const double valley = (rises ? half : half + 1) * kPitch / 2;
      points.push_back({static_cast<int>(view), sample.column, sample.row, valley, slope});
    }
  }
  cv::Mat p = cv::Mat::zeros(kHead + 3 * 6, 1, CV_64F);
  p.at<double>(0) = 36;
  p.at<double>(4) = -27;
  p.at<double>(5) = 10;
  for (int view = 1; view < 7; ++view) {
    p.at<double>(kHead + 3 * (view - 1)) = kNumbers[view].x;
    p.at<double>(kHead + 3 * (view - 1) + 1) = kNumbers[view].z;
    p.at<double>(kHead + 3 * (view - 1) + 2) = kNumbers[view].degrees * CV_PI / 180;
  }
  const auto solver = cv::LMSolver::create(cv::makePtr<Equations>(points), 500, 1e-15);
  EXPECT_GT(solver->run(p), 0);

  const auto ours = tool::calibrate::Solve(
      kWidth, kHeight, tool::calibrate::Sawtooth(kPitch, kDepth), LookAtAll(kSeed, "sawtooth", 0));
  for (double column = 20; column < kWidth; column += 60) {
    for (double row = 350; row < 800; row += 50) {
      const Mm theirs = ToMm(p.ptr<double>(), column, row);
      tessaline_measurement point{};
      ASSERT_EQ(tessaline_point_to_mm(&ours.calibration, column, row, &point), 0);
      constexpr double kTenthOfMicrometre = 1e-4;  // mm
      EXPECT_NEAR(point.x, theirs.x, kTenthOfMicrometre) << column << " " << row;
      EXPECT_NEAR(point.z, theirs.z, kTenthOfMicrometre) << column << " " << row;
    }
  }
}

}  // namespace
}  // namespace tessaline_test
