#include "calibrate/Target.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Failure.h"

namespace tool::calibrate {
namespace {

constexpr int kTeeth = 400;  // on either side of the middle
constexpr std::size_t kMostTreads = 1000;
constexpr double kSmallest = 1e-3;  // mm
constexpr double kLargest = 1e4;    // mm

[[noreturn]] void Refuse(const std::string& what) {
  throw Failure(ExitCode::kUsage, what,
                "a target is {\"kind\": \"stairs\", \"edges\": [...], \"heights\": [...]}, "
                "{\"kind\": \"sawtooth\", \"pitch\": MM, \"depth\": MM} or {\"kind\": \"plane\"}");
}

bool IsLength(double mm) { return mm >= kSmallest && mm <= kLargest; }

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
  if (heights.size() < 2 || heights.size() > kMostTreads || edges.size() != heights.size() + 1) {
    Refuse("stairs have 2 to 1000 treads, one height each, and one edge more");
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
  return target;
}

Target ReadTarget(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    throw Failure(ExitCode::kFile, fmt::format("cannot read {}: {}", path, strerror(errno)));
  }
  constexpr std::streamsize kLongest = 65536;
  std::string text(kLongest, '\0');
  file.read(text.data(), kLongest);
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (!file.eof()) Refuse(fmt::format("{} is longer than any target", path));
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
