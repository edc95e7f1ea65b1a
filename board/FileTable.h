#pragma once

#include <memory>
#include <string>

#include "Device.h"

namespace board {

// The board's open descriptors. Each is a real descriptor of the process (so no
// other open can get the same number) that stands for an OpenFile.

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
int Install(Entry entry, int open_flags);
Entry Lookup(int fd);
// Takes the descriptor out of the table and closes it; the OpenFile lives on while
// a call is inside it.
void Release(int fd);
// In the child of a fork, with nobody else inside: whether its files are ready is no
// business of the parent's.
void RenewAfterFork();

}  // namespace board
