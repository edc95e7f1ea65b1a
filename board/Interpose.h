#pragma once

#include <errno.h>
#include <pthread.h>

#include <cstdint>
#include <memory>

#include "Board.h"
#include "Caller.h"
#include "Faults.h"
#include "FileTable.h"

// What the functions that replace the C library's have in common. Each passes on calls that are not
// for the board. Calls of the board run with the caller's cancellation off (see Caller.h), so these
// outer functions must not hold objects with destructors.
namespace board {

// Converts a negative errno to the system call's return value and errno.
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

// Not inlined, to keep destructors out of the calling frame. A thread may end at a cancellation
// point before anything is done, and later in a wait.
template <typename Call>
auto InBoard(bool cancellation_point, Call call) {
  if (cancellation_point) pthread_testcancel();
  EnterBoard(cancellation_point);
  const auto result = Run(call);
  LeaveBoard();
  return result;
}

// Opening returns the new descriptor, -errno, or kNotOurs if the path is not a device of the board.
constexpr int kNotOurs = 1 << 30;
int OpenDevice(int directory, const char* path, int flags);

// Whether the working folder is one that only the board has (see InterposeWorkingFolder.cpp).
bool IsInEmptyFolder();

// Runs a call on the file behind a board descriptor. The call is given a flag that says whether to
// do only half.
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
