#pragma once

#include <cstdint>

namespace VeltranoSDK::e2v {

// One register of the selected page.
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

// Placeholder: writes a register of the page back unchanged. Where even the length is unknown, one
// stands for the whole page.
constexpr PagedEntry PagedPlaceholder(unsigned char page = 0) { return {page, 0x005F, 0, true, 0}; }

// A register of the final configuration, with its value for each sensing mode.
struct FinalEntry {
  std::uint16_t address;
  std::uint16_t fpga_timed;
  std::uint16_t sensor_timed;
  bool placeholder = false;
  std::uint16_t mask = kAllBits;  // as above
};

// A value nobody has supplied yet: the register keeps what it holds.
constexpr FinalEntry FinalPlaceholder(std::uint16_t address) { return {address, 0, 0, true, 0}; }
// The same for a register that the driver programs itself: it gets the driver's value in the bits
// the driver knows.
constexpr FinalEntry FinalPlaceholder(std::uint16_t address, std::uint16_t fpga_timed,
                                      std::uint16_t sensor_timed, std::uint16_t mask = kAllBits) {
  return {address, fpga_timed, sensor_timed, true, mask};
}

// The value of a register of an HDR list; k is the factor in use.
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

// The value is known, the register is not: until then it goes to the read-only identification
// register.
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
