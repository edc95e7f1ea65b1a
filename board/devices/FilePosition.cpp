#include "devices/FilePosition.h"

#include <errno.h>
#include <unistd.h>

namespace board {

off_t FilePosition::Seek(off_t offset, int whence, std::optional<off_t> end) {
  off_t from = 0;
  if (whence == SEEK_CUR) {
    from = position_;
  } else if (whence == SEEK_END && end) {
    from = *end;
  } else if (whence != SEEK_SET) {
    return -EINVAL;
  }
  off_t target = 0;
  if (__builtin_add_overflow(from, offset, &target) || target < 0) return -EINVAL;
  position_ = target;
  return target;
}

ssize_t FilePosition::Advance(ssize_t result) {
  if (result > 0) position_ += result;
  return result;
}

}  // namespace board
