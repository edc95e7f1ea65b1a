#pragma once

#include <unistd.h>

#include <string>

namespace runner {

// An open file of this process, which others find as long as this process runs.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.number_) { other.number_ = -1; }
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (IsOpen()) close(number_);
  }

  bool IsOpen() const { return number_ >= 0; }
  int number() const { return number_; }
  // "/proc/PID/fd/N". Throws Failure without /proc.
  std::string Path() const;

 private:
  int number_;
};

}  // namespace runner
