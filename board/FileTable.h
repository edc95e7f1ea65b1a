#pragma once

#include <memory>
#include <string>

#include "Device.h"

namespace board {

// The board's open descriptors. Each is a real descriptor of the process, so no other open can
// get the same number, and stands for an OpenFile. Several may stand for the same one; closing
// the last of them closes the file.

class Board;

struct Entry {
  std::shared_ptr<Board> board;  // keeps the devices while one of their files is open
  std::shared_ptr<OpenFile> file;
  std::string device;
};

constexpr int kMaxDescriptors = 65536;

// Takes no lock, usable at any time: most descriptors of a process are not ours.
bool IsBoardDescriptor(int fd);

// The new descriptor, or the negative errno.
int Install(Entry entry, bool close_on_exec);
int Duplicate(int fd, int at_least, bool close_on_exec);
// As dup3, for any descriptors: closes what the target stood for.
int DuplicateOnto(int fd, int target, int flags);

Entry Lookup(int fd);

// Removes the descriptor from the table and closes it; the OpenFile lives on while a call is
// inside it. 0, or the negative errno.
int Release(int fd);
// The same for all descriptors of the process from `first` to `last`, ordinary ones included.
int ReleaseRange(unsigned first, unsigned last);

// Whether the descriptors are those of the calling process. The child of a vfork has its own
// descriptors but its parent's memory: what it closes is still open in the parent.
void OwnDescriptors();  // from now on they are
bool OwnsDescriptors();

// In the child of a fork, with nobody else inside: gives it signs of its own, so that its
// files' readiness does not show in the parent.
void RenewAfterFork();

}  // namespace board
