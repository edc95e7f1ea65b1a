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
  std::string path;  // where it was opened
};

constexpr int kMaxDescriptors = 65536;

// Takes no lock and may be called at any time, because most descriptors of a process are not the
// board's.
bool IsBoardDescriptor(int fd);

// Returns the new descriptor, or the negative errno.
int Install(Entry entry, bool close_on_exec);
int Duplicate(int fd, int at_least, bool close_on_exec);
// Works like dup3 on any descriptors, and closes the file that the target stood for.
int DuplicateOnto(int fd, int target, int flags);

Entry Lookup(int fd);

// Removes the descriptor from the table and closes it. The OpenFile lives on while a call is inside
// it. Returns 0, or the negative errno.
int Release(int fd);
// Does the same for all descriptors of the process from `first` to `last`, including ordinary ones.
int ReleaseRange(unsigned first, unsigned last);

// Whether the descriptors belong to the calling process. The child of a vfork has its own
// descriptors but its parent's memory. What it closes is still open in the parent.
void OwnDescriptors();  // from now on they do
bool OwnsDescriptors();

// Call in the child of a fork while no other thread is inside. Gives the child its own signs, so
// that its files do not become ready in the parent.
void RenewAfterFork();

}  // namespace board
