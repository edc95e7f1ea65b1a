#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "chips/I2cChip.h"
#include "memory/Shared.h"

namespace board {

// A serial EEPROM of 512 bytes. It answers at 0x50 for its first half and at 0x51 for its second,
// with one byte of word address. Writes wrap within their 16-byte page and start at the stop
// condition. The chip then does not answer for 10 ms, the longest time that a write may take. Reads
// continue through both halves.
class Eeprom : public I2cChip {
 public:
  static constexpr std::size_t kBytes = 512;
  static constexpr std::int64_t kWriteCycleNs = 10'000'000;

  explicit Eeprom(BoardMemory& memory);  // erased: all 0xFF

  bool Acknowledges(std::uint8_t address) const override;
  bool Message(const I2cMessage& message) override;
  void Stop() override;

  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

 private:
  using Cells = std::array<std::uint8_t, kBytes>;
  static constexpr std::size_t kPage = 16;

  struct State {
    std::size_t counter = 0;
    // One page, latched but not yet written.
    std::array<std::uint8_t, kPage> page{};
    std::array<bool, kPage> latched{};
    std::size_t page_start = 0;
    std::int64_t busy_until_ns = 0;
  };
  Shared<State> state_;
  Cells& memory_;  // guarded by the lock of the state
};

}  // namespace board
