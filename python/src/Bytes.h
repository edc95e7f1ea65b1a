#pragma once

#include <pybind11/pybind11.h>

#include <cstddef>

namespace python {

// The memory of an object that has the buffer protocol. It stays where it is meanwhile, also
// without the GIL. Made and destroyed with the GIL.
class Bytes {
 public:
  // Bytes, or records of bytes. Raises a TypeError for anything else.
  explicit Bytes(pybind11::handle object);
  ~Bytes() { PyBuffer_Release(&view_); }
  Bytes(const Bytes&) = delete;
  Bytes& operator=(const Bytes&) = delete;

  const void* data() const { return view_.buf; }
  std::size_t size() const { return static_cast<std::size_t>(view_.len); }

 private:
  Py_buffer view_{};
};

}  // namespace python
