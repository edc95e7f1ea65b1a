#include "chips/Eeprom.h"

#include <algorithm>

#include "Clock.h"

namespace board {
namespace {

constexpr std::uint8_t kAddress = 0x50;  // of the first half; the second half has the next address
constexpr std::size_t kHalf = Eeprom::kBytes / 2;
constexpr std::array kErased = [] {
  std::array<std::uint8_t, Eeprom::kBytes> cells{};
  cells.fill(0xFF);
  return cells;
}();

bool IsOurs(std::uint8_t address) { return address == kAddress || address == kAddress + 1; }

}  // namespace

Eeprom::Eeprom(BoardMemory& memory) : state_(memory), memory_(memory.Keep("eeprom.bin", kErased)) {}

bool Eeprom::Acknowledges(std::uint8_t address) const {
  if (!Present() || !IsOurs(address)) return false;
  return NowNs() >= state_.Lock()->busy_until_ns;
}

bool Eeprom::Message(const I2cMessage& message) {
  const auto chip = state_.Lock();
  // A repeated start instead of a stop condition discards what was latched.
  chip->latched.fill(false);
  const std::size_t half = static_cast<std::size_t>(message.address - kAddress) * kHalf;
  if (message.read) {
    chip->counter = half + chip->counter % kHalf;
    for (std::uint8_t& byte : message.bytes) {
      byte = memory_[chip->counter];
      chip->counter = (chip->counter + 1) % kBytes;
    }
    return true;
  }
  if (message.bytes.empty()) return true;
  chip->page_start = half + message.bytes.front() / kPage * kPage;
  std::size_t place = message.bytes.front() % kPage;
  for (const std::uint8_t byte : message.bytes.subspan(1)) {
    chip->page[place] = byte;
    chip->latched[place] = true;
    place = (place + 1) % kPage;
  }
  chip->counter = chip->page_start + place;
  return true;
}

void Eeprom::Stop() {
  const auto chip = state_.Lock();
  if (std::ranges::find(chip->latched, true) == chip->latched.end()) return;
  for (std::size_t i = 0; i < kPage; ++i) {
    if (chip->latched[i]) memory_[chip->page_start + i] = chip->page[i];
  }
  chip->latched.fill(false);
  chip->busy_until_ns = NowNs() + kWriteCycleNs;
}

int Eeprom::Peek(unsigned address) const {
  if (address >= kBytes) return -1;
  const auto chip = state_.Lock();
  return memory_[address];
}

bool Eeprom::Poke(unsigned address, unsigned value) {
  if (address >= kBytes) return false;
  const auto chip = state_.Lock();
  memory_[address] = static_cast<std::uint8_t>(value);
  return true;
}

}  // namespace board
