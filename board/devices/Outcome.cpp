#include "devices/Outcome.h"

namespace board {

std::string Outcome(long result) {
  return result >= 0 ? std::string() : " failed: " + ErrnoName(static_cast<int>(-result));
}

}  // namespace board
