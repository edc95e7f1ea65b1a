#pragma once

#include <atomic>

namespace board {

// A chip from the bench's side: its registers without a transfer on its bus, and
// whether it is fitted at all.
class ChipAccess {
 public:
  ChipAccess() = default;
  virtual ~ChipAccess() = default;
  ChipAccess(const ChipAccess&) = delete;
  ChipAccess& operator=(const ChipAccess&) = delete;

  // A register's or memory cell's value; -1: the chip has no such address.
  virtual int Peek(unsigned address) const = 0;
  // False: no such address. Read-only registers can be set here.
  virtual bool Poke(unsigned address, unsigned value) = 0;

  void SetPresent(bool present) { present_ = present; }
  bool Present() const { return present_; }

 private:
  std::atomic<bool> present_{true};
};

}  // namespace board
