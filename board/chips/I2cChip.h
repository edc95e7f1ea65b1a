#pragma once

#include <cstdint>
#include <span>

#include "chips/ChipAccess.h"

namespace board {

// One message on the wire: a start condition, the address, the bytes.
struct I2cMessage {
  std::uint8_t address;           // 7 bits
  bool read;                      // from the chip to the master
  std::span<std::uint8_t> bytes;  // write: the data; read: for the chip to fill
};

// A chip on an I2C bus. The bus serialises transfers. A chip also guards its own registers,
// because tests and the frame engine read them at any time.
class I2cChip : public ChipAccess {
 public:
  // Whether the chip acknowledges this address now. An absent or busy chip does not.
  virtual bool Acknowledges(std::uint8_t address) const = 0;
  // A message to the address just acknowledged. Returns false if a byte was not acknowledged.
  virtual bool Message(const I2cMessage& message) = 0;
  // The stop condition that ends the transaction, after one or more messages.
  virtual void Stop() {}
};

}  // namespace board
