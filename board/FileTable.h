#pragma once

#include <memory>
#include <string>

#include "Device.h"

namespace board {

// The board's open descriptors. Each is a real descriptor of the process (so no
// other open can get the same number) that stands for an OpenFile; several may stand for
// the same, and with the last of them its file is closed.

class Board;

struct Entry {
  std::shared_ptr<Board> board;  // keeps the devices while one of their files is open
  std::shared_ptr<OpenFile> file;
  std::string device;
};

constexpr int kMaxDescriptors = 65536;

// No lock, usable at any time: most descriptors of a process are not ours.
bool IsBoardDescriptor(int fd);

// The new descriptor, or the negative errno.
int Install(Entry entry, bool close_on_exec);
int Duplicate(int fd, int at_least, bool close_on_exec);
// As dup3, of whichever descriptors: what the target stood for is closed.
int DuplicateOnto(int fd, int target, int flags);

Entry Lookup(int fd);

// Takes the descriptor out of the table and closes it; the OpenFile lives on while
// a call is inside it. 0, or the negative errno.
int Release(int fd);
// The same of all that the process has from `first` to `last`, its ordinary ones too.
int ReleaseRange(unsigned first, unsigned last);

// Whether the descriptors are those of the calling process. The child of a vfork has its
// own, and all of its parent's memory: what it closes there is still open here.
void OwnDescriptors();  // from now on they are
bool OwnsDescriptors();

// In the child of a fork, with nobody else inside: the descriptors are its own, and whether
// its files are ready is no business of the parent's.
void RenewAfterFork();

}  // namespace board
