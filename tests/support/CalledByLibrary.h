#pragma once

#include <dlfcn.h>

#include <string_view>

namespace tessaline_test {

// Whether a return address lies in libtessaline.so. For functions that replace those of the C
// library, which the virtual board and the program itself call too.
inline bool CalledByLibrary(void* return_address) {
  Dl_info caller{};
  return dladdr(return_address, &caller) != 0 &&
         std::string_view(caller.dli_fname).find("libtessaline.so") != std::string_view::npos;
}

}  // namespace tessaline_test
