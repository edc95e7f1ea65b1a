#pragma once

#include <errno.h>
#include <pthread.h>

#include <cstdint>
#include <memory>

#include "Board.h"
#include "Caller.h"
#include "Faults.h"
#include "FileTable.h"

// What the functions in front of the C library's have in common. Each passes on a call that is
// not for the board. A board call is made with the caller's cancellation off (see Caller.h), so
// these outer functions must not hold objects with destructors.
namespace board {

// Turns a negative errno into what the system call would return.
template <typename Result>
Result AsSystemCall(Result result) {
  if (result >= 0) return result;
  errno = static_cast<int>(-result);
  return -1;
}

template <typename Call>
__attribute__((noinline)) auto Run(Call& call) {
  return call();
}

// Out of line, to keep destructors out of the calling frame: a thread may end in a
// cancellation point before anything is done, and later in a wait.
template <typename Call>
auto InBoard(bool cancellation_point, Call call) {
  if (cancellation_point) pthread_testcancel();
  EnterBoard(cancellation_point);
  const auto result = Run(call);
  LeaveBoard();
  return result;
}

// The new descriptor, or -errno; kNotOurs when the path is not a device of the board.
constexpr int kNotOurs = 1 << 30;
int OpenDevice(const char* path, int flags);

// Runs a call on the file behind a board descriptor. The call learns whether to cut itself
// short.
template <typename Call>
std::int64_t OnFile(int fd, bool cancellation_point, const char* operation, Call call) {
  return InBoard(cancellation_point, [=]() -> std::int64_t {
    const Entry entry = Lookup(fd);
    if (entry.file == nullptr) return -EBADF;
    if (entry.board != Board::Current()) return -ENODEV;
    const CallFate fate = PlantedFault(entry.device, operation);
    if (fate.error != 0) return -fate.error;
    return call(*entry.file, fate.cut_short);
  });
}

}  // namespace board
