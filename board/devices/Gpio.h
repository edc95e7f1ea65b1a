#pragma once

#include <memory>
#include <string>
#include <vector>

#include "devices/OpenCount.h"
#include "memory/Shared.h"

namespace board {

// The board's GPIO lines, in the sysfs interface below /sys/class/gpio. All are low inputs until
// software changes them.
class Gpio : public CountedDevice {
 public:
  Gpio(BoardMemory& memory, const std::vector<unsigned>& numbers);

  // The electrical level of an exported output, or -1 for any other line.
  int Level(unsigned line) const;

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;
  void List(FileTree& tree) const override;

 private:
  struct Lines;

  Shared<Lines> lines_;
};

}  // namespace board
