#include "chips/Tpl0401.h"

#include <algorithm>

namespace board {
namespace {

constexpr std::uint8_t kAddress = 0x3E;
constexpr std::uint8_t kWiperRegister = 0;
constexpr std::uint8_t kWiperMask = 0x7F;
constexpr std::uint8_t kMidScale = 64;

}  // namespace

Tpl0401::Tpl0401(BoardMemory& memory)
    : state_(memory), wiper_(memory.Keep("potentiometer.bin", kMidScale)) {}

bool Tpl0401::Acknowledges(std::uint8_t address) const { return Present() && address == kAddress; }

bool Tpl0401::Message(const I2cMessage& message) {
  const auto chip = state_.Lock();
  const auto bytes = message.bytes;
  if (message.read) {
    std::fill(bytes.begin(), bytes.end(), chip->selected == kWiperRegister ? wiper_ : 0);
    return true;
  }
  if (bytes.empty()) return true;
  chip->selected = bytes.front();
  if (bytes.size() > 1 && chip->selected == kWiperRegister) wiper_ = bytes.back() & kWiperMask;
  return true;
}

int Tpl0401::Peek(unsigned address) const {
  const auto chip = state_.Lock();
  return address == kWiperRegister ? wiper_ : -1;
}

bool Tpl0401::Poke(unsigned address, unsigned value) {
  if (address != kWiperRegister) return false;
  const auto chip = state_.Lock();
  wiper_ = static_cast<std::uint8_t>(value & kWiperMask);
  return true;
}

double Tpl0401::Power() const {
  const auto chip = state_.Lock();
  return (kWiperMask - wiper_) / static_cast<double>(kWiperMask);
}

}  // namespace board
