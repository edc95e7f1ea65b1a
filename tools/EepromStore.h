#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace tool {

// The board's configuration store.
namespace eeprom {

inline constexpr std::size_t kBytes = 512;
inline constexpr std::size_t kPageBytes = 16;  // what the chip writes at once
using Content = std::array<std::uint8_t, kBytes>;

// Throws a Failure if the bus is missing or the chip does not answer.
Content Read();
// Writes page by page; throws a Failure at the first page that cannot be written.
void Write(std::span<const std::uint8_t> bytes);
// The same, of those pages only that are not as before.
void WriteChanges(const Content& before, const Content& after);
std::size_t PagesThatDiffer(const Content& a, const Content& b);

}  // namespace eeprom
}  // namespace tool
