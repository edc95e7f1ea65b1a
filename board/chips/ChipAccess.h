#pragma once

#include <atomic>

namespace board {

// Access to a chip without its bus: its registers, and whether it is fitted.
class ChipAccess {
 public:
  ChipAccess() = default;
  virtual ~ChipAccess() = default;
  ChipAccess(const ChipAccess&) = delete;
  ChipAccess& operator=(const ChipAccess&) = delete;

  // The value of a register or memory cell, or -1 if the chip has no such address.
  virtual int Peek(unsigned address) const = 0;
  // Returns false if there is no such address. Read-only registers can be set here.
  virtual bool Poke(unsigned address, unsigned value) = 0;

  void SetPresent(bool present) { present_ = present; }
  bool Present() const { return present_; }

 private:
  std::atomic<bool> present_{true};
};

}  // namespace board
