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

inline constexpr std::uint16_t kAllBits = 0xFFFF;

// One entry of a list that the chip's maker supplies.
struct PagedEntry {
  unsigned char page;
  std::uint16_t address;
  std::uint16_t value;
  bool placeholder = false;
  std::uint16_t mask = kAllBits;  // the bits that are replaced; `value` has no others
};

// Stands for entries that nobody has supplied yet: a register of the page gets back
// what it holds, which is nothing new to any chip. Where the length of a list is the
// maker's secret, too, one placeholder stands for all that goes to a page.
constexpr PagedEntry PagedPlaceholder(unsigned char page = 0) { return {page, 0x005F, 0, true, 0}; }

// A register of the final configuration, with its value for either sensing mode.
struct FinalEntry {
  std::uint16_t address;
  std::uint16_t fpga_timed;
  std::uint16_t sensor_timed;
  bool placeholder = false;
  std::uint16_t mask = kAllBits;  // as above
};

// A value nobody has supplied yet: the register keeps what it holds.
constexpr FinalEntry FinalPlaceholder(std::uint16_t address) { return {address, 0, 0, true, 0}; }
// The same for a register that the driver programs itself: it gets what the driver
// would give it, but for the bits the driver does not know.
constexpr FinalEntry FinalPlaceholder(std::uint16_t address, std::uint16_t fpga_timed,
                                      std::uint16_t sensor_timed, std::uint16_t mask = kAllBits) {
  return {address, fpga_timed, sensor_timed, true, mask};
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

// What is known of the entry is its value, not where it goes: until then it goes to a
// register that only can be read, the first of the identification.
constexpr HdrEntry HdrPlaceholder(HdrValue kind, std::uint16_t constant = 0) {
  return {0x0001, kind, constant, true};
}

// A poll of the status register until all bits of `mask` are set.
struct StatusWait {
  std::uint16_t mask;
  const char* pass;
  const char* miss;  // format for the masked status
  const char* read_failed;
};

}  // namespace VeltranoSDK::e2v
