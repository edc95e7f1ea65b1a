#pragma once

#include <memory>
#include <string>

#include "devices/OpenCount.h"

namespace board {

class BoardMemory;

// The processor's watchdog timer: /dev/watchdog and /dev/watchdog0. It counts the board's time. A
// bite does not reset the board, but it is recorded. Feeding does not undo it.
class Watchdog : public CountedDevice {
 public:
  static constexpr double kNotArmed = -1000;

  explicit Watchdog(BoardMemory& memory);

  // Seconds until it bites, negative if it has bitten, or kNotArmed.
  double Left() const;
  int Timeout() const;  // seconds
  // The status of WDIOC_GETSTATUS: fed since it was asked for last, and may be stopped.
  int TakeStatus() const;
  static constexpr int kMinTimeout = 1;    // seconds
  static constexpr int kMaxTimeout = 516;  // seconds; the limit of the hardware's counter
  static std::string Identity();

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;

 private:
  class Timer;
  class File;

  std::shared_ptr<Timer> timer_;
};

}  // namespace board
