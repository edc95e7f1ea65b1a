#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

namespace tool::calibrate {

// Of the steps of stairs, as a part of the largest.
inline constexpr double kSmallestStep = 1 / 3.0;

// A straight part of a target's outline, from left to right, in the target's own frame: s across,
// h up, mm.
struct Facet {
  Eigen::Vector2d begin;
  Eigen::Vector2d end;
};

// A body of known shape whose outline the sensor sees.
struct Target {
  enum class Kind { kPlane, kSawtooth, kStairs };

  Kind kind = Kind::kPlane;
  // From left to right. Those of a sawtooth reach beyond any field of view.
  std::vector<Facet> facets;
  // Where a sawtooth stands on its valley s = 0, the number of the facet to the right.
  std::size_t middle = 0;
};

Target Plane();
// Symmetric teeth: h is 0 at s = 0 and `depth` half a pitch further.
Target Sawtooth(double pitch, double depth);
// Horizontal treads: tread i reaches from edges[i] to edges[i + 1] at heights[i]. Throws a Failure
// if no number of views of them could calibrate a head.
Target Stairs(const std::vector<double>& edges, const std::vector<double>& heights);

// From a JSON file: {"kind": "stairs", "edges": [...], "heights": [...]},
// {"kind": "sawtooth", "pitch": 8, "depth": 4} or {"kind": "plane"}. Throws a Failure.
Target ReadTarget(const std::string& path);

}  // namespace tool::calibrate
