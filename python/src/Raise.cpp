#include "Raise.h"

namespace py = pybind11;

namespace python {

py::object Text(const std::string& text) {
  PyObject* const decoded =
      PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "backslashreplace");
  if (decoded == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(decoded);
}

void Raise(const char* name, const std::string& what, const std::string& advice) {
  const py::object type = py::module_::import("tessaline.errors").attr(name);
  const py::object error = type(Text(what), Text(advice));
  PyErr_SetObject(type.ptr(), error.ptr());
  throw py::error_already_set();
}

void RaiseType(const std::string& what) {
  PyErr_SetString(PyExc_TypeError, what.c_str());
  throw py::error_already_set();
}

}  // namespace python
