#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "PrivateDescriptor.h"

namespace board {

// What the board's parts know, in one piece of memory. The processes that share a board map the
// same piece, each at an address of its own, so it holds no pointers. A board for one process has a
// piece that nobody else sees, and that a fork copies.
class BoardMemory {
 public:
  static std::unique_ptr<BoardMemory> Own();
  // The piece that a file holds: the first process that opens it makes the board. Null: the file
  // cannot be used, and errno says why, or it holds the board of another model (errno 0).
  static std::unique_ptr<BoardMemory> Join(const std::string& file, const std::string& model);

  ~BoardMemory();
  BoardMemory(const BoardMemory&) = delete;
  BoardMemory& operator=(const BoardMemory&) = delete;

  bool IsShared() const { return file_.Get() >= 0; }
  // Whether this process makes the board. Otherwise another one has.
  bool IsFirst() const { return first_; }

  // A part's place. Parts ask in the same order in every process.
  template <typename Value>
  Value& Place() {
    static_assert(std::is_trivially_destructible_v<Value>, "stays when the process ends");
    void* const place = Next(sizeof(Value), alignof(Value));
    return first_ ? *new (place) Value{} : *static_cast<Value*>(place);
  }

  // A value that outlives the board if there is a folder for it: a file there, which starts as
  // `fresh`.
  template <typename Value>
  Value& Keep(const std::string& name, const Value& fresh) {
    static_assert(std::is_trivially_copyable_v<Value>);
    void* const place = Next(sizeof(Value), alignof(Value));
    if (first_) new (place) Value(fresh);
    return *static_cast<Value*>(InFolder(name, place, sizeof(Value)));
  }
  void SetFolder(std::string folder) { folder_ = std::move(folder); }
  // Why a file in the folder cannot be used; empty: all can.
  const std::string& Wrong() const { return wrong_; }

  // Large memory, zero at first, whose pages are allocated when they are touched.
  struct Pages {
    int file;  // negative: there is none
    off_t offset;
  };
  Pages NewPages(const char* name, std::size_t bytes);

  // All parts have their places. Until then no other process gets further than Join().
  void Complete();

  // For the child of a fork: its locks are not its parent's.
  void Renew();

  // The file, for locks that the kernel keeps; negative: the board is not shared.
  int LockFile() const { return lock_file_.Get(); }

 private:
  struct Header;
  BoardMemory(PrivateDescriptor file, std::byte* memory);
  void* Next(std::size_t bytes, std::size_t alignment);
  void* InFolder(const std::string& name, void* place, std::size_t bytes);
  void* MapFile(const std::string& path, const void* fresh, std::size_t bytes);
  Header& Head() const;

  const PrivateDescriptor file_;
  // Opened a second time: a mapping keeps an open file, and its locks, in a child that lives on.
  PrivateDescriptor lock_file_;
  std::byte* const memory_;
  bool first_ = true;
  std::size_t used_ = 0;
  off_t pages_;
  std::string folder_;
  std::string wrong_;
  std::vector<PrivateDescriptor> own_pages_;
  std::vector<std::pair<void*, std::size_t>> kept_;  // mapped files
};

}  // namespace board
