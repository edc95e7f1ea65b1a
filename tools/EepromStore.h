#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace tool {

// The board's configuration store.
namespace eeprom {

inline constexpr std::size_t kBytes = 512;
using Content = std::array<std::uint8_t, kBytes>;

// Throws a Failure if the bus is missing or the chip does not answer.
Content Read();
// Writes page by page; throws a Failure at the first page that cannot be written.
void Write(std::span<const std::uint8_t> bytes);

}  // namespace eeprom
}  // namespace tool
