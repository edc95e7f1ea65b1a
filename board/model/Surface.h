#pragma once

#include <optional>
#include <vector>

#include "model/Head.h"

namespace board {

// A straight piece of the surface in the laser plane.
struct Face {
  PlanePoint from, to;  // with x growing, except on walls
  // The face of a step: it hides what is behind it, but sends no light to the camera.
  bool wall = false;
};

// The part of a circle above z = 0.
struct Cap {
  PlanePoint centre;
  double radius;
  double left, right;  // x where it ends
};

// What the laser plane meets, from one side of the field to the other.
struct Surface {
  std::vector<Face> faces;
  std::optional<Cap> cap;

  // The highest place at x. Nothing where there is only a wall.
  std::optional<double> Height(double x) const;
};

// Far enough across to be outside the field of every head, mm.
inline constexpr double kSurfaceReach = 60;

// The parts of `faces` that light reaches from a source above, past everything of `surface`. Caps
// are so flat that they cast no shadow.
std::vector<Face> PartsInView(const std::vector<Face>& faces, const Surface& surface,
                              PlanePoint source);

// The laser's source. Its fan spreads from there.
inline constexpr PlanePoint kLaserSource{0, 200};

}  // namespace board
