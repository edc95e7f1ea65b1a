#include "calibrate/Target.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "Counted.h"
#include "Failure.h"
#include "InputFile.h"

namespace tool::calibrate {
namespace {

constexpr int kTeeth = 400;  // on either side of the middle
// The upper edges of treads are seen, one a step, and two or fewer do not turn a view into
// millimetres.
constexpr std::size_t kFewestTreads = 4;
constexpr std::size_t kMostTreads = 1000;
constexpr double kSmallest = 1e-3;  // mm
constexpr double kLargest = 1e4;    // mm

constexpr const char* kNext =
    "a target is {\"kind\": \"stairs\", \"edges\": [...], \"heights\": [...]}, "
    "{\"kind\": \"sawtooth\", \"pitch\": MM, \"depth\": MM} or {\"kind\": \"plane\"}";

[[noreturn]] void Refuse(const std::string& what) { throw Failure(ExitCode::kUsage, what, kNext); }

bool IsLength(double mm) { return mm >= kSmallest && mm <= kLargest; }

// Of every step, the edge that is seen.
bool UpperEdgesAreInLine(const Target& stairs) {
  std::vector<Eigen::Vector2d> edges;
  for (std::size_t i = 1; i < stairs.facets.size(); ++i) {
    const Eigen::Vector2d& left = stairs.facets[i - 1].end;
    const Eigen::Vector2d& right = stairs.facets[i].begin;
    edges.push_back(left.y() > right.y() ? left : right);
  }
  const Eigen::Vector2d along = (edges.back() - edges.front()).normalized();
  return std::all_of(edges.begin(), edges.end(), [&](const Eigen::Vector2d& edge) {
    const Eigen::Vector2d from = edge - edges.front();
    return std::abs(from.x() * along.y() - from.y() * along.x()) < kSmallest;
  });
}

// A step is told from a tilted tread by the largest one in view.
void RequireEvenSteps(const std::vector<double>& heights) {
  double smallest = kLargest;
  double largest = 0;
  for (std::size_t i = 1; i < heights.size(); ++i) {
    const double step = std::abs(heights[i] - heights[i - 1]);
    smallest = std::min(smallest, step);
    largest = std::max(largest, step);
  }
  if (smallest >= largest * kSmallestStep) return;
  Refuse(
      fmt::format("a step of {:.3g} mm is smaller than a third of the largest, {:.3g} mm, and is "
                  "not seen beside it",
                  smallest, largest));
}

}  // namespace

Target Plane() { return {Target::Kind::kPlane, {{{-kLargest, 0}, {kLargest, 0}}}, 0}; }

Target Sawtooth(double pitch, double depth) {
  if (!IsLength(pitch) || !IsLength(depth)) {
    Refuse("pitch and depth of a sawtooth are between 0.001 and 10000 mm");
  }
  Target target{Target::Kind::kSawtooth, {}, 2 * kTeeth};
  for (int half = -2 * kTeeth; half < 2 * kTeeth; ++half) {
    const auto vertex = [&](int n) {
      return Eigen::Vector2d(n * pitch / 2, n % 2 == 0 ? 0 : depth);
    };
    target.facets.push_back({vertex(half), vertex(half + 1)});
  }
  return target;
}

Target Stairs(const std::vector<double>& edges, const std::vector<double>& heights) {
  if (heights.size() < kFewestTreads || heights.size() > kMostTreads ||
      edges.size() != heights.size() + 1) {
    Refuse(
        fmt::format("stairs have {} to {} treads, one height each, and one edge more; these "
                    "have {} and {}",
                    kFewestTreads, kMostTreads, Counted(heights.size(), "height"),
                    Counted(edges.size(), "edge")));
  }
  const auto is_far = [](double mm) { return !(std::abs(mm) <= kLargest); };
  if (std::any_of(edges.begin(), edges.end(), is_far) ||
      std::any_of(heights.begin(), heights.end(), is_far)) {
    Refuse("edges and heights of stairs are at most 10000 mm");
  }
  Target target{Target::Kind::kStairs, {}, 0};
  for (std::size_t i = 0; i < heights.size(); ++i) {
    if (edges[i + 1] - edges[i] < kSmallest) Refuse("the edges of stairs go from left to right");
    if (i > 0 && std::abs(heights[i] - heights[i - 1]) < kSmallest) {
      Refuse("neighbouring treads of stairs differ in height");
    }
    target.facets.push_back({{edges[i], heights[i]}, {edges[i + 1], heights[i]}});
  }
  RequireEvenSteps(heights);
  if (UpperEdgesAreInLine(target)) {
    Refuse("the upper edges of these stairs lie on one line, which does not tell x from z");
  }
  return target;
}

Target ReadTarget(const std::string& path) {
  constexpr std::size_t kLongest = 65536;
  const auto text = ReadWholeFile(path, kLongest, kNext);
  const auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) Refuse(fmt::format("{} is not a JSON object", path));
  try {
    const auto kind = json.at("kind").get<std::string>();
    if (kind == "plane") return Plane();
    if (kind == "sawtooth") {
      return Sawtooth(json.at("pitch").get<double>(), json.at("depth").get<double>());
    }
    if (kind == "stairs") {
      return Stairs(json.at("edges").get<std::vector<double>>(),
                    json.at("heights").get<std::vector<double>>());
    }
    Refuse(fmt::format("{}: there is no target of kind \"{}\"", path, kind));
  } catch (const nlohmann::json::exception& error) {
    Refuse(fmt::format("{}: {}", path, error.what()));
  }
}

}  // namespace tool::calibrate
