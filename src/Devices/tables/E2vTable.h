#pragma once

#include <cstdint>

namespace VeltranoSDK::e2v {

// One register in the page selected.
struct Write {
  std::uint16_t address;
  std::uint16_t value;
  std::uint16_t named = address;  // the register that the failure text names

  constexpr Write NamedAs(std::uint16_t other) const { return {address, value, other}; }
};

// What a placeholder rewrites: the test pattern stays off.
inline constexpr Write kPlaceholderWrite{0x005F, 0};

// One entry of a list that the chip's maker supplies.
struct PagedEntry {
  unsigned char page;
  std::uint16_t address;
  std::uint16_t value;
  bool placeholder = false;
};

// Stands for entries that nobody has supplied yet. Where the length of a list is
// the maker's secret, too, one placeholder stands for all of it.
constexpr PagedEntry PagedPlaceholder(const Write& write = kPlaceholderWrite) {
  return {0, write.address, write.value, true};
}

// A register of the final configuration, with its value for either sensing mode.
struct FinalEntry {
  std::uint16_t address;
  std::uint16_t fpga_timed;
  std::uint16_t sensor_timed;
  bool placeholder = false;
};

// The same for a register that the driver documents: it gets what it has anyway.
constexpr FinalEntry FinalPlaceholder(std::uint16_t address, std::uint16_t value) {
  return {address, value, value, true};
}
constexpr FinalEntry FinalPlaceholder() {
  return FinalPlaceholder(kPlaceholderWrite.address, kPlaceholderWrite.value);
}

// What a register of an HDR list receives; k is the factor in use.
enum class HdrValue {
  kConstant,
  kSub1,       // k - 1
  kSqSubKLow,  // lower and upper half of k x k - k - 1
  kSqSubKHigh,
};

struct HdrEntry {
  std::uint16_t address;
  HdrValue kind;
  std::uint16_t constant = 0;
  bool placeholder = false;
};

// What is known of the entry is its value, not where it goes: until then the
// placeholder register is written in its stead.
constexpr HdrEntry HdrPlaceholder(HdrValue kind, std::uint16_t constant = 0) {
  return {kPlaceholderWrite.address, kind, constant, true};
}

// A poll of the status register until all bits of `mask` are set.
struct StatusWait {
  std::uint16_t mask;
  const char* pass;
  const char* miss;  // format for the masked status
  const char* read_failed;
};

}  // namespace VeltranoSDK::e2v
