#pragma once

#include <cstdint>

namespace VeltranoSDK {

// One step of a sensor's programming. The bits of `keep` are read first and stay.
struct RegisterWrite {
  std::uint16_t address;
  std::uint8_t value;
  std::uint8_t keep = 0;
  std::uint16_t named = address;  // the register that the failure text names

  constexpr RegisterWrite Keeping(std::uint8_t mask) const { return {address, value, mask, named}; }
  constexpr RegisterWrite NamedAs(std::uint16_t other) const {
    return {address, value, keep, other};
  }
};

}  // namespace VeltranoSDK
