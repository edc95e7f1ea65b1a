#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "SecondMapping.h"

namespace python {

// The content of one delivery: the driver's buffer itself, until Detach(), or a copy.
class Loan {
 public:
  // The driver's memory where that can be, else a copy of it.
  static std::shared_ptr<Loan> Of(const void* data, std::size_t bytes);
  static std::shared_ptr<Loan> CopyOf(const void* data, std::size_t bytes);
  ~Loan();
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;

  const std::uint8_t* data() const { return data_; }
  std::size_t bytes() const { return bytes_; }
  // Whether it is the driver's buffer.
  bool borrowed() const;

  // Afterwards the buffer can go back to the driver: the content stays as it is, at the same
  // address, in memory of its own. May run on any thread while others read. Throws std::bad_alloc,
  // and then nothing has changed.
  void Detach();

 private:
  Loan() = default;

  const std::uint8_t* data_ = nullptr;
  std::size_t bytes_ = 0;
  mutable std::mutex mutex_;
  Pages pages_;  // none: a copy from the start
  bool detached_ = false;
  std::unique_ptr<std::uint8_t[]> copy_;
};

}  // namespace python
