#pragma once

#include <memory>
#include <string>

#include "devices/OpenCount.h"

namespace board {

class BoardMemory;

// One interrupt of the FPGA, seen through the generic UIO driver: "/dev/uio0". An interrupt masks
// itself until software writes 1. An interrupt that arrives while masked stays pending. Further
// ones merge with it.
class Uio : public CountedDevice {
 public:
  Uio(BoardMemory& memory, unsigned number);

  void SetPoll(bool implemented) override;
  // Called when the board is unplugged. Ends blocked reads with ENODEV.
  void Unplug() override;

  // The FPGA's interrupt line.
  void Raise();
  unsigned Raised() const;     // number of interrupts since power-up
  unsigned Delivered() const;  // of those, how many the driver has handled

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;

 private:
  class Interrupt;
  class File;

  std::shared_ptr<Interrupt> interrupt_;
};

}  // namespace board
