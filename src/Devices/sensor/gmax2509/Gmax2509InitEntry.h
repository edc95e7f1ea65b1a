#pragma once

#include <cstdint>

#include "Devices/sensor/SensorTable.h"

namespace VeltranoSDK::gmax2509 {

// Values of the initialisation table that the driver computes when it writes the table.
enum class Computed : std::uint8_t {
  kNo,
  kRowSubsampling,  // 1 in products that always run subsampled
  kRowCountLow,
  kRowCountHigh,
  kPllDivider,
  kPllMultiplier,
  kLineTimeLow,
  kLineTimeHigh,
  kGain,
  kConfiguration,  // 8 bits of the configuration word
};

// A byte, or the value to compute in its place.
struct InitValue {
  constexpr InitValue() = default;
  // NOLINTNEXTLINE(google-explicit-constructor): tables hold either
  constexpr InitValue(std::uint8_t byte) : constant(byte) {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  constexpr InitValue(Computed what) : computed(what) {}

  std::uint8_t constant = 0;
  Computed computed = Computed::kNo;
};

using InitEntry = TableEntry<std::uint8_t, InitValue>;

// Every initialisation table of this sensor has this many entries.
inline constexpr std::size_t kInitEntries = 98;

}  // namespace VeltranoSDK::gmax2509
