#pragma once

#include <string>

namespace python {

// Raises an exception of the package, tessaline.errors.NAME(what, advice).
[[noreturn]] void Raise(const char* name, const std::string& what, const std::string& advice);
// Raises a TypeError.
[[noreturn]] void RaiseType(const std::string& what);

}  // namespace python
