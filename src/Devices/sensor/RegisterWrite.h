#pragma once

#include <cstdint>

#include "Devices/bus/Bytes.h"

namespace VeltranoSDK {

// One write to an 8-bit register.
struct RegisterWrite {
  std::uint16_t address;
  std::uint8_t value;
  std::uint8_t mask = 0xFF;       // the bits that are replaced
  std::uint16_t named = address;  // the register that the failure text names

  constexpr RegisterWrite Only(std::uint8_t bits) const { return {address, value, bits, named}; }
  constexpr RegisterWrite NamedAs(std::uint16_t other) const {
    return {address, value, mask, other};
  }

  // The value to write; the register is read only if some bits stay.
  template <typename Bus>
  std::uint8_t ValueOn(Bus& bus) const {
    return mask == 0xFF ? value : LowByte(Replaced(bus.Read(address), mask, value));
  }
};

// For buses that report no errors.

template <typename Bus>
void Update(Bus& bus, std::uint16_t address, std::uint8_t mask, std::uint8_t bits) {
  bus.Write(address, RegisterWrite{address, bits, mask}.ValueOn(bus));
}

// 16 bits in two registers.
template <typename Bus>
void WriteWord(Bus& bus, std::uint16_t low_address, unsigned int value) {
  bus.Write(low_address, LowByte(value));
  bus.Write(low_address + 1, HighByte(value));
}

}  // namespace VeltranoSDK
