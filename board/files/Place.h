#pragma once

#include <string>

#include "Board.h"
#include "Device.h"
#include "files/FileTree.h"

namespace board {

// Where a path of a system call leads on the board.
struct Place {
  std::string path;  // absolute, without dots and links of the board
  FileTree::Node node;
};

// Finds the place that a path names, seen from an open folder or AT_FDCWD. `follow`: if it is a
// link of the board, what it leads to. Nothing: the kernel's own files. A folder that the kernel
// has, too, counts as the kernel's.
std::optional<Place> FindPlace(const Board& board, int directory, const char* path, bool follow);

// The same for any folder that the board has something in, also one of the kernel's.
std::optional<Place> FindFolder(const Board& board, int directory, const char* path);
std::optional<Place> FindFolder(const Board& board, int descriptor);

// A path from the root, without dots and links of the board.
std::string AbsolutePath(const Board& board, const char* path);

// The place of a board descriptor.
std::optional<Place> PlaceOf(const Board& board, int descriptor);

// What stat tells of it.
struct stat StatusOf(const Place& place);

// An open folder of the board, or what O_PATH gives: it tells where it is, and does nothing.
class PlaceFile : public OpenFile {
 public:
  explicit PlaceFile(bool folder) : folder_(folder) {}
  ssize_t Read(void* buffer, std::size_t size) override;
  ssize_t Write(const void* buffer, std::size_t size) override;

 private:
  const bool folder_;
};

}  // namespace board
