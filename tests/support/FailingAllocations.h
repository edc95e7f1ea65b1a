#pragma once

// Makes an allocation of libtessaline.so fail, chosen by the return address; those of the C library
// and the virtual board succeed. Include it in only one file of a program: it replaces the
// program's allocation functions.

#include <errno.h>

#include <cstddef>

#include "support/CalledByLibrary.h"

extern "C" void* __libc_malloc(std::size_t);
extern "C" void* __libc_calloc(std::size_t, std::size_t);

namespace failing_allocations {

inline thread_local int until_failure = 0;  // 0: none fails

inline bool Fails(void* caller) {
  if (until_failure == 0 || !tessaline_test::CalledByLibrary(caller)) return false;
  if (--until_failure > 0) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace failing_allocations

// Fails the n-th (from 1) allocation that the library makes on this thread from now on.
inline void FailLibraryAllocation(int nth) { failing_allocations::until_failure = nth; }

#pragma GCC visibility push(default)
extern "C" void* malloc(std::size_t size) {
  return failing_allocations::Fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
  return failing_allocations::Fails(__builtin_return_address(0)) ? nullptr
                                                                 : __libc_calloc(count, size);
}
#pragma GCC visibility pop
