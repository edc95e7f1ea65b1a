#pragma once

#include <array>
#include <cstddef>

namespace VeltranoSDK {

// One entry of a long register table.
//
// Where only the chip maker's documents say what belongs there, the entry is a placeholder: it
// rewrites a register that the driver documents with the value the driver gives it anyway. So a
// table that nobody has supplied yet writes no undocumented register. A known value for an unknown
// register goes to a read-only one. The table still has its full length and order.
template <typename Address, typename Value>
struct TableEntry {
  Address address;
  Value value;
  bool placeholder = false;
};

template <typename Address, typename Value>
constexpr TableEntry<Address, Value> Placeholder(Address address, Value value) {
  return {address, value, true};
}

// The number of entries that wait for the chip maker's documents.
template <typename Entry, std::size_t kSize>
constexpr std::size_t CountPlaceholders(const std::array<Entry, kSize>& table) {
  std::size_t count = 0;
  for (const Entry& entry : table) count += entry.placeholder ? 1 : 0;
  return count;
}

// The same placeholder `kCount` times.
template <std::size_t kCount, typename Address, typename Value>
constexpr std::array<TableEntry<Address, Value>, kCount> Placeholders(Address address,
                                                                      Value value) {
  std::array<TableEntry<Address, Value>, kCount> table{};
  for (auto& entry : table) entry = Placeholder(address, value);
  return table;
}

// Joins tables one after another into one.
template <typename Entry, std::size_t... kSizes>
constexpr std::array<Entry, (kSizes + ...)> Joined(const std::array<Entry, kSizes>&... tables) {
  std::array<Entry, (kSizes + ...)> joined{};
  auto end = joined.begin();
  const auto append = [&](const auto& table) {
    for (const Entry& entry : table) *end++ = entry;
  };
  (append(tables), ...);
  return joined;
}

}  // namespace VeltranoSDK
