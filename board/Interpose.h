#pragma once

#include <errno.h>
#include <pthread.h>

#include <cstdint>
#include <memory>

#include "Board.h"
#include "Caller.h"
#include "Faults.h"
#include "FileTable.h"

// What the functions in front of the C library's have in common. Each passes a call
// that is none of the board's straight on; a board call is made with the caller's
// cancellation held back (see Caller.h), so these outer functions keep no object
// with a destructor.
namespace board {

// A negative errno becomes what the system call would return.
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

// Out of line, so that what the call destroys stays out of this frame: a thread may end in
// a cancellation point before anything is done, and later where it waits.
template <typename Call>
auto InBoard(bool cancellation_point, Call call) {
  if (cancellation_point) pthread_testcancel();
  EnterBoard(cancellation_point);
  const auto result = Run(call);
  LeaveBoard();
  return result;
}

// The new descriptor, or -errno; kNotOurs when the path is no device of the board.
constexpr int kNotOurs = 1 << 30;
int OpenDevice(const char* path, int flags);

// Runs a call on the file behind a board descriptor. It is told whether it is to be
// cut short.
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
