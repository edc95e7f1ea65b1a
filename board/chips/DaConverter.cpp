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
  const std::lock_guard lock(mutex_);
  const auto bytes = message.bytes;
  if (message.read) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] =
          static_cast<std::uint8_t>(i % 2 == 0 ? power_down_ << 4 | value_ >> 8 : value_ & 0xFF);
    }
    return true;
  }
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    if ((bytes[i] & kCommandBits) != 0) continue;
    power_down_ = bytes[i] >> 4 & kPowerDownMask;
    value_ = static_cast<std::uint16_t>((bytes[i] << 8 | bytes[i + 1]) & kValueMask);
  }
  return true;
}

int DaConverter::Peek(unsigned address) const {
  const std::lock_guard lock(mutex_);
  if (address == kValue) return value_;
  return address == kPowerDown ? power_down_ : -1;
}

bool DaConverter::Poke(unsigned address, unsigned value) {
  const std::lock_guard lock(mutex_);
  if (address > kPowerDown) return false;
  if (address == kValue) {
    value_ = static_cast<std::uint16_t>(value & kValueMask);
  } else {
    power_down_ = static_cast<std::uint8_t>(value & kPowerDownMask);
  }
  return true;
}

double DaConverter::Level() const {
  const std::lock_guard lock(mutex_);
  return power_down_ != 0 ? 0 : value_ / static_cast<double>(kValueMask);
}

}  // namespace board
