#pragma once

#include <memory>
#include <string>

#include "chips/SpiChip.h"
#include "devices/OpenCount.h"

namespace board {

class BoardMemory;

// A chip select of an SPI controller and its chip, seen through spidev: "/dev/spidev1.0". Its name
// is "spi1.0".
class SpiBus : public CountedDevice {
 public:
  SpiBus(BoardMemory& memory, unsigned controller, unsigned select, std::shared_ptr<SpiChip> chip);

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;

 private:
  struct Line;
  class File;

  std::shared_ptr<Line> line_;
};

}  // namespace board
