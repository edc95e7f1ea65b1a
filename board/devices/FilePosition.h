#pragma once

#include <sys/types.h>

#include <atomic>
#include <optional>

namespace board {

// Where an open file reads and writes next.
class FilePosition {
 public:
  // As lseek. `end` is the file's size; a file without one cannot be sought from its end.
  off_t Seek(off_t offset, int whence, std::optional<off_t> end);

  off_t Get() const { return position_; }
  // Advances by the result of a read or write, unless that failed. Returns the result.
  ssize_t Advance(ssize_t result);

 private:
  std::atomic<off_t> position_{0};
};

}  // namespace board
