#pragma once

#include <pybind11/pybind11.h>
#include <unistd.h>

namespace python {

// Lets go of Python's lock until the end of the scope. When the interpreter ends meanwhile, the
// thread stays here: Python would end it by an unwinding that no C++ frame survives.
class WithoutGil {
 public:
  WithoutGil() : state_(PyEval_SaveThread()) {}
  ~WithoutGil() {
    while (_Py_IsFinalizing() != 0) pause();
    PyEval_RestoreThread(state_);
  }
  WithoutGil(const WithoutGil&) = delete;
  WithoutGil& operator=(const WithoutGil&) = delete;

 private:
  PyThreadState* state_;
};

}  // namespace python
