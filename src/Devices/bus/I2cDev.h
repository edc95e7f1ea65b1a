#pragma once

#include <linux/i2c.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace VeltranoSDK {

// A client on an i2c-dev bus. Every transaction opens the bus device and closes it
// again: no descriptor is held between transactions.
//
// Threads: any thread may start a transaction, several at once; the adapter runs them one after
// another. Open and Close: one thread at a time.
class I2cDev {
 public:
  // `address` is the client's 7-bit address.
  I2cDev(std::string path, std::uint8_t address);
  ~I2cDev();
  I2cDev(const I2cDev&) = delete;
  I2cDev& operator=(const I2cDev&) = delete;

  // Open and close the bus device separately, in addition to the descriptors of the transactions.
  bool Open();
  int Close();

  // Writes, then reads read.size() bytes without a stop in between. `read` changes only when the
  // transaction succeeds.
  bool I2cRdWr(std::vector<std::uint8_t> write, std::vector<std::uint8_t>& read) const;
  bool I2cRdWr(std::vector<std::uint8_t> write) const;

 private:
  int OpenBus() const;
  // A transaction keeps no state in the object.
  bool Transfer(std::span<i2c_msg> messages) const;
  i2c_msg MessageOf(std::vector<std::uint8_t>& bytes, unsigned short flags) const;

  std::string path_;
  std::uint8_t address_;
  int fd_ = -1;  // opened by Open
};

}  // namespace VeltranoSDK
