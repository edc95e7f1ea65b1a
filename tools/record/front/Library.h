#pragma once

#include <dlfcn.h>

namespace tool {

// The library's own function of this name; null while the process has not loaded the library. It
// stands behind us, or a program such as Python has loaded it for itself alone.
template <typename Function>
Function* LibraryFunction(const char* name) {
  void* found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) {
    for (const char* file : {"libtessaline.so.1", "libtessaline.so"}) {
      void* const library = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
      if (library == nullptr) continue;
      found = dlsym(library, name);
      dlclose(library);
      break;
    }
  }
  return reinterpret_cast<Function*>(found);
}

}  // namespace tool
