#pragma once

#include <cstdint>

// What the sensor looks at: objects of known shape on a belt that moves at constant
// speed from power-up on, an encoder on the belt, and a laser line across it.
// Lengths in mm: x across the belt, 0 in the middle, y along it, z up.
namespace board::scene {

inline constexpr double kSpeed = 50;         // mm/s
inline constexpr double kCountsPerMm = 100;  // of the encoder
inline constexpr double kCountsPerSecond = kSpeed * kCountsPerMm;
inline constexpr double kPeriod = 120;        // the objects repeat every so many mm
inline constexpr double kFieldOfView = 72.8;  // width that the full sensor sees
inline constexpr double kMaxHeight = 20;      // z that the full sensor sees

double BeltPosition(std::int64_t time_ns);  // y under the laser line
std::uint64_t EncoderCount(std::int64_t time_ns);

double Height(double x, double y);
// How much of the laser's light the surface sends back, 0 .. 1.
double Reflectance(double x, double y);

// Triangulation, linear: a sensor of the given size sees the belt (z = 0) at three
// quarters of its height and kMaxHeight at one quarter, and its whole width sees
// kFieldOfView. Rows and columns in pixels of the full sensor.
double Row(double z, unsigned full_height);
double X(double column, unsigned full_width);

}  // namespace board::scene
