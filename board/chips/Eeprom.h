#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "chips/I2cChip.h"

namespace board {

// A serial EEPROM of 512 bytes. It answers at 0x50 for its first half and at 0x51 for its second,
// with one byte of word address. Writes wrap within their 16-byte page and start at the stop
// condition. The chip then does not answer for 10 ms, the longest time that a write may take. Reads
// continue through both halves.
class Eeprom : public I2cChip {
 public:
  static constexpr std::size_t kBytes = 512;
  static constexpr std::int64_t kWriteCycleNs = 10'000'000;

  Eeprom();  // erased: all 0xFF

  bool Acknowledges(std::uint8_t address) const override;
  bool Message(const I2cMessage& message) override;
  void Stop() override;

  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

 private:
  struct Pending {
    std::size_t address;
    std::uint8_t value;
  };

  mutable std::mutex mutex_;
  std::array<std::uint8_t, kBytes> memory_;
  std::size_t counter_ = 0;
  std::vector<Pending> pending_;  // latched, not yet written
  std::int64_t busy_until_ns_ = 0;
};

}  // namespace board
