#pragma once

#include <memory>
#include <string>

#include "devices/OpenCount.h"

namespace board {

// One interrupt of the FPGA, as the generic UIO driver shows it: "/dev/uio0". An interrupt masks
// itself until software writes 1. One that comes while masked stays pending; further ones
// merge with it.
class Uio : public CountedDevice {
 public:
  explicit Uio(unsigned number);

  void SetPoll(bool implemented) override;
  // Ends blocked reads with ENODEV: the board is unplugged.
  void Unplug() override;

  // The FPGA's interrupt line.
  void Raise();
  unsigned Raised() const;  // how often, since power-up

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;

 private:
  class Interrupt;
  class File;

  std::shared_ptr<Interrupt> interrupt_;
};

}  // namespace board
