#pragma once

#include <cstdint>

#include "model/Surface.h"

// The scene in front of the sensor: objects of known shape on a belt that has moved at constant
// speed since power-up, an encoder on the belt, and a laser line across it. Lengths are in mm. x is
// across the belt, 0 in the middle; y is along the belt; z is up.
namespace board::scene {

inline constexpr double kSpeed = 50;         // mm/s
inline constexpr double kCountsPerMm = 100;  // of the encoder
inline constexpr double kCountsPerSecond = kSpeed * kCountsPerMm;
inline constexpr double kPeriod = 120;        // mm after which the objects repeat
inline constexpr double kFieldOfView = 72.8;  // width that the full sensor sees
inline constexpr double kMaxHeight = 20;      // z that the full sensor sees

double BeltPosition(std::int64_t time_ns);  // y under the laser line
std::uint64_t EncoderCount(std::int64_t time_ns);

double Height(double x, double y);
// Fraction of the laser's light that the surface reflects, 0 .. 1.
double Reflectance(double x, double y);

// What the laser plane meets at y.
Surface CrossSection(double y);

// A straight way that starts on the surface, goes to where the belt has passed (smaller y) and rises
// by at least as much as it goes.
struct Sight {
  double x, y, z;
  double across, along, up;  // direction
};
// Whether an object is in the way.
bool IsBlocked(const Sight& sight);

// Linear triangulation. A sensor of the given size sees the belt (z = 0) at three quarters of its
// height and kMaxHeight at one quarter. Its whole width covers kFieldOfView. Rows and columns are
// in pixels of the full sensor.
double Row(double z, unsigned full_height);
double Z(double row, unsigned full_height);
double X(double column, unsigned full_width);

}  // namespace board::scene
