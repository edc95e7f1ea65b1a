#include "chips/DaConverter.h"

namespace board {
namespace {

constexpr std::uint8_t kAddress = 0x60;
constexpr std::uint16_t kValueMask = 0xFFF;
constexpr std::uint8_t kPowerDownMask = 0x3;
constexpr std::uint8_t kCommandBits = 0xC0;  // 0: write the converter

enum Register : unsigned { kValue, kPowerDown };

}  // namespace

bool DaConverter::Acknowledges(std::uint8_t address) const {
  return Present() && address == kAddress;
}

bool DaConverter::Message(const I2cMessage& message) {
  const auto chip = state_.Lock();
  const auto bytes = message.bytes;
  if (message.read) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<std::uint8_t>(i % 2 == 0 ? chip->power_down << 4 | chip->value >> 8
                                                      : chip->value & 0xFF);
    }
    return true;
  }
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    if ((bytes[i] & kCommandBits) != 0) continue;
    chip->power_down = bytes[i] >> 4 & kPowerDownMask;
    chip->value = static_cast<std::uint16_t>((bytes[i] << 8 | bytes[i + 1]) & kValueMask);
  }
  return true;
}

int DaConverter::Peek(unsigned address) const {
  const auto chip = state_.Lock();
  if (address == kValue) return chip->value;
  return address == kPowerDown ? chip->power_down : -1;
}

bool DaConverter::Poke(unsigned address, unsigned value) {
  const auto chip = state_.Lock();
  if (address > kPowerDown) return false;
  if (address == kValue) {
    chip->value = static_cast<std::uint16_t>(value & kValueMask);
  } else {
    chip->power_down = static_cast<std::uint8_t>(value & kPowerDownMask);
  }
  return true;
}

double DaConverter::Level() const {
  const auto chip = state_.Lock();
  return chip->power_down != 0 ? 0 : chip->value / static_cast<double>(kValueMask);
}

}  // namespace board
