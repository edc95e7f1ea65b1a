#pragma once

#include <cstdint>

namespace board {

// What the roughness of the surface does to one point of the line: interference of the laser's
// light makes it brighter or darker, and shifts its middle.
struct Speckle {
  double row;   // normally distributed, standard deviation 1
  double peak;  // likewise
  bool lost;    // no point at all
};

// The same numbers always give the same speckle, and no others do.
Speckle SpeckleAt(std::uint64_t seed, std::uint64_t frame_id, unsigned column);

// Standard deviations of a bright line's row in pixels and of its peak as a fraction of it.
inline constexpr double kSpeckleRow = 0.08;
inline constexpr double kSpeckleContrast = 0.1;
inline constexpr double kLostFraction = 0.005;

// Standard deviation of the row, pixels, of a line of this grey value. Above 255 it is saturated.
double SpeckleRowSigma(double grey);

}  // namespace board
