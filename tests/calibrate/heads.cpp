// Calibrates simulated heads and measures with them: how many of the points lie within two of the
// standard deviations that the calibration states? Prints them; fails outside the limits.
#include "Heads.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>

#include "Failure.h"

namespace {

using namespace tessaline_test;
using namespace tool::calibrate;

// The points of a coordinate.
struct Coverage {
  double points = 0;
  double within = 0;
  double squares = 0;  // of the errors, mm

  void Add(double error, double sigma) {
    points += 1;
    within += std::abs(error) <= 2 * sigma ? 1 : 0;
    squares += error * error;
  }
  bool IsBetween(double least, double most) const {
    return 100 * within >= least * points && 100 * within <= most * points;
  }
  void Print(const char* name) const {
    fmt::print("{}: {:.2f} % of {} points within 2 sigma, error {:.2f} um (1 sigma)\n", name,
               100 * within / points, points, 1000 * std::sqrt(squares / points));
  }
};

// A surface that the solver has not seen, where the target has been: beside one of its places.
// Their heights and tilts are those for which the calibration states its uncertainty; in the middle
// of them it is smaller.
std::string SceneFor(std::uint64_t head) {
  const std::string& pose = kPoses[head % kPoses.size()];
  return "sawtooth" + pose.substr(0, pose.find(",x=")) + ",x=2.5";
}

// With the rows' noise, and of the calibration alone: its part in a noisy point is too small to
// show.
struct Coverages {
  Coverage x, z, x_alone, z_alone;
  unsigned outside = 0;  // the field: nothing is stated there
};

void Measure(std::uint64_t head, const tessaline_calibration& c, Coverages& coverages) {
  const View truth = Look(head, SceneFor(head), 1000, 0);
  const View seen = Look(head, SceneFor(head), 1000, 1);
  std::size_t k = 0;
  for (const Sample& sample : seen.samples) {
    while (k < truth.samples.size() && truth.samples[k].column < sample.column) ++k;
    if (k == truth.samples.size() || truth.samples[k].column != sample.column) continue;
    double true_x = 0;
    double true_z = 0;
    tessaline_board_head_to_mm(head, kWidth, kHeight, sample.column, truth.samples[k].row, &true_x,
                               &true_z);
    tessaline_measurement measured{};
    if (tessaline_point_to_mm(&c, sample.column, sample.row, &measured) != 0) continue;
    if (std::isnan(measured.z_sigma)) {
      ++coverages.outside;
      continue;
    }
    coverages.x.Add(measured.x - true_x, measured.x_sigma);
    coverages.z.Add(measured.z - true_z, measured.z_sigma);
    tessaline_point_to_mm(&c, sample.column, truth.samples[k].row, &measured);
    coverages.x_alone.Add(measured.x - true_x, c.x_sigma);
    coverages.z_alone.Add(measured.z - true_z, c.z_sigma);
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Calibrates simulated heads and compares their measurements with the truth");
  unsigned heads = 1000;
  app.add_option("heads", heads, "How many")->check(CLI::Range(1u, 1'000'000u));
  double least = 93;
  double most = 97;
  app.add_option("--least", least, "Percent; a few heads are a small sample")
      ->capture_default_str();
  app.add_option("--most", most, "Percent")->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  const Target target = Sawtooth(8, 4);
  Coverages coverages;
  unsigned refused = 0;
  for (std::uint64_t head = 1; head <= heads; ++head) {
    try {
      Measure(head, Solve(kWidth, kHeight, target, LookAtAll(head, "sawtooth", 1)).calibration,
              coverages);
    } catch (const tool::Failure& failure) {
      ++refused;
      fmt::print("head {}: {}\n", head, failure.what());
    }
  }
  fmt::print("{} heads, {} refused\n", heads, refused);
  const auto& [x, z, x_alone, z_alone, outside] = coverages;
  fmt::print("{} points outside the field\n", outside);
  x.Print("x");
  z.Print("z");
  x_alone.Print("x without the rows' noise");
  z_alone.Print("z without the rows' noise");
  // The errors of one head's points depend on each other, so these scatter more.
  constexpr double kLeastAlone = 80;
  const double most_alone = std::max(99.9, most);
  const bool alone =
      x_alone.IsBetween(kLeastAlone, most_alone) && z_alone.IsBetween(kLeastAlone, most_alone);
  const bool both = x.IsBetween(least, most) && z.IsBetween(least, most);
  return refused == 0 && alone && both ? 0 : 1;
}
