#pragma once

#include <cstdint>

namespace board {

// Spreads a number over all 64 bits: the last step of the generator SplitMix64.
constexpr std::uint64_t Mix(std::uint64_t number) {
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9u;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EBu;
  return number ^ (number >> 31);
}

// The generator SplitMix64. The standard library's distributions may differ from one library to the
// next, and a seed must mean the same head everywhere.
class Random {
 public:
  constexpr explicit Random(std::uint64_t seed) : state_(seed) {}

  constexpr std::uint64_t Next() { return Mix(state_ += 0x9E3779B97F4A7C15u); }
  // 0 <= number < 1
  constexpr double Fraction() { return static_cast<double>(Next() >> 11) * 0x1p-53; }
  constexpr double Between(double low, double high) { return low + (high - low) * Fraction(); }
  constexpr double Around(double spread) { return Between(-spread, spread); }

 private:
  std::uint64_t state_;
};

}  // namespace board
