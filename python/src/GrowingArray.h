#pragma once

#include <pybind11/numpy.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>

namespace python {

// Numbers that become more and more, and in the end a NumPy array, without being copied: the
// kernel moves the pages of large blocks.
template <typename T>
class GrowingArray {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  T* data() { return memory_.get(); }

  // Makes room for so many in all.
  void Reserve(std::size_t count) {
    if (count > room_) Resize(std::max(count, 2 * room_));
  }

  // The first so many, as an array; nothing is left. With the GIL.
  pybind11::array_t<T> Release(std::size_t count) {
    if (count == 0) return pybind11::array_t<T>(0);
    Resize(count);
    const pybind11::capsule owner(memory_.get(), std::free);
    T* const numbers = memory_.release();
    room_ = 0;
    return pybind11::array_t<T>(static_cast<pybind11::ssize_t>(count), numbers, owner);
  }

 private:
  struct Free {
    void operator()(T* memory) const { std::free(memory); }
  };

  void Resize(std::size_t count) {
    if (count > PTRDIFF_MAX / sizeof(T)) throw std::bad_alloc();
    auto* const moved = static_cast<T*>(std::realloc(memory_.get(), count * sizeof(T)));
    if (moved == nullptr) throw std::bad_alloc();
    static_cast<void>(memory_.release());
    memory_.reset(moved);
    room_ = count;
  }

  std::unique_ptr<T[], Free> memory_;
  std::size_t room_ = 0;
};

}  // namespace python
