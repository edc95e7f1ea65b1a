#include "chips/Eeprom.h"

#include "Clock.h"

namespace board {
namespace {

constexpr std::uint8_t kAddress = 0x50;  // of the first half; the second half has the next address
constexpr std::size_t kHalf = Eeprom::kBytes / 2;
constexpr std::size_t kPage = 16;

bool IsOurs(std::uint8_t address) { return address == kAddress || address == kAddress + 1; }

std::size_t NextInPage(std::size_t address) {
  return address / kPage * kPage + (address + 1) % kPage;
}

}  // namespace

Eeprom::Eeprom() { memory_.fill(0xFF); }

bool Eeprom::Acknowledges(std::uint8_t address) const {
  if (!Present() || !IsOurs(address)) return false;
  const std::lock_guard lock(mutex_);
  return NowNs() >= busy_until_ns_;
}

bool Eeprom::Message(const I2cMessage& message) {
  const std::lock_guard lock(mutex_);
  // A repeated start instead of a stop condition discards what was latched.
  pending_.clear();
  const std::size_t half = static_cast<std::size_t>(message.address - kAddress) * kHalf;
  if (message.read) {
    counter_ = half + counter_ % kHalf;
    for (std::uint8_t& byte : message.bytes) {
      byte = memory_[counter_];
      counter_ = (counter_ + 1) % kBytes;
    }
    return true;
  }
  if (message.bytes.empty()) return true;
  counter_ = half + message.bytes.front();
  for (const std::uint8_t byte : message.bytes.subspan(1)) {
    pending_.push_back({counter_, byte});
    counter_ = NextInPage(counter_);
  }
  return true;
}

void Eeprom::Stop() {
  const std::lock_guard lock(mutex_);
  if (pending_.empty()) return;
  for (const Pending& cell : pending_) memory_[cell.address] = cell.value;
  pending_.clear();
  busy_until_ns_ = NowNs() + kWriteCycleNs;
}

int Eeprom::Peek(unsigned address) const {
  if (address >= kBytes) return -1;
  const std::lock_guard lock(mutex_);
  return memory_[address];
}

bool Eeprom::Poke(unsigned address, unsigned value) {
  if (address >= kBytes) return false;
  const std::lock_guard lock(mutex_);
  memory_[address] = static_cast<std::uint8_t>(value);
  return true;
}

}  // namespace board
