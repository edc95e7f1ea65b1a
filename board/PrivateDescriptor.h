#pragma once

#include <cstddef>
#include <utility>

namespace board {

// A descriptor that the board itself needs. Its number stays clear of the application's, and
// the application cannot close it.
class PrivateDescriptor {
 public:
  PrivateDescriptor() = default;
  // Takes ownership; negative: none.
  explicit PrivateDescriptor(int fd);
  PrivateDescriptor(PrivateDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  PrivateDescriptor& operator=(PrivateDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~PrivateDescriptor();

  int Get() const { return fd_; }  // negative: none

 private:
  int fd_ = -1;
};

// Shared memory, whose pages are allocated when they are touched. None if there is no such
// memory.
PrivateDescriptor NewMemory(const char* name, std::size_t bytes);

// Takes no lock, usable at any time.
bool IsPrivateDescriptor(int fd);

}  // namespace board
