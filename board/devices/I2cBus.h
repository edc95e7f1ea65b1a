#pragma once

#include <memory>
#include <string>

#include "chips/I2cChip.h"
#include "devices/OpenCount.h"

namespace board {

class BoardMemory;

// An I2C adapter with its chips, seen through i2c-dev: "/dev/i2c-0".
class I2cBus : public CountedDevice {
 public:
  I2cBus(BoardMemory& memory, unsigned number);

  // Call before the first transfer. If two chips acknowledge the same address, the one attached
  // first wins.
  void Attach(std::shared_ptr<I2cChip> chip);

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;

 private:
  struct Adapter;
  class File;

  std::shared_ptr<Adapter> adapter_;
};

}  // namespace board
