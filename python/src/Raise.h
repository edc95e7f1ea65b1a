#pragma once

#include <pybind11/pybind11.h>

#include <string>

namespace python {

// A str. Texts may hold a path, whose bytes need not be UTF-8: others become "\\xNN".
pybind11::object Text(const std::string& text);

// Raises an exception of the package, tessaline.errors.NAME(what, advice).
[[noreturn]] void Raise(const char* name, const std::string& what, const std::string& advice);
// Raises a TypeError.
[[noreturn]] void RaiseType(const std::string& what);

}  // namespace python
