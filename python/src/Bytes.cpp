#include "Bytes.h"

#include <string>
#include <string_view>

#include "Raise.h"

namespace python {

namespace {

bool IsBytes(const Py_buffer& view) {
  const std::string_view format = view.format == nullptr ? "B" : view.format;
  return view.itemsize == 1 || format.starts_with("T{");
}

}  // namespace

Bytes::Bytes(pybind11::handle object) {
  if (PyObject_GetBuffer(object.ptr(), &view_, PyBUF_C_CONTIGUOUS | PyBUF_FORMAT) != 0) {
    PyErr_Clear();
    const std::string type = Py_TYPE(object.ptr())->tp_name;
    RaiseType("a " + type +
              " does not show bytes without gaps; give bytes, a bytearray, a memoryview or a "
              "NumPy array of uint8");
  }
  if (!IsBytes(view_)) {
    const std::string format = view_.format;
    PyBuffer_Release(&view_);
    RaiseType("an array of numbers of the format '" + format +
              "' is not bytes; give what was received, as bytes or as a NumPy array of uint8");
  }
}

}  // namespace python
