#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "devices/OpenCount.h"

namespace board {

class BoardMemory;

// The raw on-chip temperature, as the system monitor's IIO driver reports it.
class IioTemperature : public CountedDevice {
 public:
  // `paths` are the files that return the value. There are several if links lead to it.
  IioTemperature(BoardMemory& memory, std::vector<std::string> paths, unsigned raw);

  void SetRaw(unsigned raw) { raw_ = raw; }

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;
  void List(FileTree& tree) const override;

 private:
  const std::vector<std::string> paths_;
  std::atomic<unsigned>& raw_;
};

}  // namespace board
