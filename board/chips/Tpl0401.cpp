#include "chips/Tpl0401.h"

#include <algorithm>

namespace board {
namespace {

constexpr std::uint8_t kAddress = 0x3E;
constexpr std::uint8_t kWiperRegister = 0;
constexpr std::uint8_t kWiperMask = 0x7F;

}  // namespace

bool Tpl0401::Acknowledges(std::uint8_t address) const { return Present() && address == kAddress; }

bool Tpl0401::Message(const I2cMessage& message) {
  const std::lock_guard lock(mutex_);
  const auto bytes = message.bytes;
  if (message.read) {
    std::fill(bytes.begin(), bytes.end(), selected_ == kWiperRegister ? wiper_ : 0);
    return true;
  }
  if (bytes.empty()) return true;
  selected_ = bytes.front();
  if (bytes.size() > 1 && selected_ == kWiperRegister) wiper_ = bytes.back() & kWiperMask;
  return true;
}

int Tpl0401::Peek(unsigned address) const {
  const std::lock_guard lock(mutex_);
  return address == kWiperRegister ? wiper_ : -1;
}

bool Tpl0401::Poke(unsigned address, unsigned value) {
  if (address != kWiperRegister) return false;
  const std::lock_guard lock(mutex_);
  wiper_ = static_cast<std::uint8_t>(value & kWiperMask);
  return true;
}

double Tpl0401::Power() const {
  const std::lock_guard lock(mutex_);
  return (kWiperMask - wiper_) / static_cast<double>(kWiperMask);
}

}  // namespace board
