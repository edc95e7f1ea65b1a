#pragma once

#include <cstddef>
#include <utility>

namespace board {

// A descriptor that the board itself needs. Its number does not collide with the application's, and
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

// Creates shared memory, whose pages are allocated when they are touched. Returns no descriptor if
// that fails.
PrivateDescriptor NewMemory(const char* name, std::size_t bytes);

// Takes no lock and may be called at any time.
bool IsPrivateDescriptor(int fd);

}  // namespace board
