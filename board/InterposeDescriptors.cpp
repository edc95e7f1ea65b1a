// Operations on descriptors: duplicating them, their flags, closing them.

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "Interpose.h"
#include "PrivateDescriptor.h"
#include "RealCalls.h"
#include "StandardStreams.h"

namespace board {
namespace {

// The flags of a file that fcntl can change.
constexpr int kChangeable = O_APPEND | O_ASYNC | O_NONBLOCK;

int CloseAny(int fd) {
  if (IsPrivateDescriptor(fd) && OwnsDescriptors()) return AsSystemCall(-EBADF);
  if (!IsBoardDescriptor(fd) || !OwnsDescriptors()) return real::Close(fd);
  return AsSystemCall(InBoard(true, [=] { return Release(fd); }));
}

int DuplicateAny(int fd) {
  if (!IsBoardDescriptor(fd) || !OwnsDescriptors()) return real::Dup(fd);
  return AsSystemCall(InBoard(false, [=] { return Duplicate(fd, 0, false); }));
}

// True if the table must record the change.
bool ConcernsBoard(int fd, int target) {
  const bool known =
      IsBoardDescriptor(fd) || IsBoardDescriptor(target) || IsPrivateDescriptor(target);
  return known && fd != target && OwnsDescriptors();
}

int DuplicateOntoBoard(int fd, int target, int flags) {
  const int result = AsSystemCall(InBoard(false, [=] { return DuplicateOnto(fd, target, flags); }));
  if (IsBoardDescriptor(result)) CarryStandardStream(result);
  return result;
}

int ControlFile(int fd, int command, long argument) {
  return InBoard(false, [=] {
    const Entry entry = Lookup(fd);
    if (entry.file == nullptr) return -EBADF;
    const int flags = entry.file->Flags();
    if (command == F_GETFL) return flags;
    entry.file->SetFlags((flags & ~kChangeable) | (static_cast<int>(argument) & kChangeable));
    return 0;
  });
}

// All other commands go to the kernel, as for any other descriptor.
int ControlAny(int fd, int command, long argument) {
  if (!IsBoardDescriptor(fd)) return real::Fcntl(fd, command, argument);
  const bool duplicate = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
  if (duplicate && OwnsDescriptors()) {
    const int at_least = static_cast<int>(argument);
    const bool close_on_exec = command == F_DUPFD_CLOEXEC;
    return AsSystemCall(InBoard(false, [=] { return Duplicate(fd, at_least, close_on_exec); }));
  }
  if (command == F_GETFL || command == F_SETFL) {
    return AsSystemCall(ControlFile(fd, command, argument));
  }
  return real::Fcntl(fd, command, argument);
}

int CloseRangeAny(unsigned first, unsigned last, int flags) {
  // With a flag set, the call closes nothing yet, or not for all threads.
  if (flags != 0 || first > last || !OwnsDescriptors()) {
    return real::CloseRange(first, last, flags);
  }
  return AsSystemCall(InBoard(false, [=] { return ReleaseRange(first, last); }));
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int close(int fd) { return board::CloseAny(fd); }

int dup(int fd) { return board::DuplicateAny(fd); }

int dup2(int fd, int target) {
  if (!board::ConcernsBoard(fd, target)) return board::real::Dup2(fd, target);
  return board::DuplicateOntoBoard(fd, target, 0);
}

int dup3(int fd, int target, int flags) {
  if (!board::ConcernsBoard(fd, target)) return board::real::Dup3(fd, target, flags);
  return board::DuplicateOntoBoard(fd, target, flags);
}

int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return board::ControlAny(fd, command, argument);
}

int fcntl64(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return board::ControlAny(fd, command, argument);
}

int close_range(unsigned first, unsigned last, int flags) {
  return board::CloseRangeAny(first, last, flags);
}

void closefrom(int first) {
  board::CloseRangeAny(static_cast<unsigned>(std::max(first, 0)), UINT_MAX, 0);
}

}  // extern "C"
#pragma GCC visibility pop
