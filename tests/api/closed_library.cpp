// An application that loads the library, starts the device and unloads the library again. Threads
// and signal handler continue to run. The argument is the library's path.
#include <dlfcn.h>
#include <signal.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>

#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace {

void* library = nullptr;

template <typename Signature>
Signature* Function(const char* name) {
  void* const found = dlsym(library, name);
  if (found == nullptr) std::exit(EXIT_FAILURE);
  return reinterpret_cast<Signature*>(found);
}

}  // namespace

int main(int argc, char** argv) {
  library = argc < 2 ? nullptr : dlopen(argv[1], RTLD_NOW);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", argc < 2 ? "which library?" : dlerror());
    return EXIT_FAILURE;
  }
  tessaline_board_select("K3610");
  tessaline_board_set_sleep_factor(0);
  Function<decltype(log_set_quiet)>("log_set_quiet")(true);
  Function<decltype(GetLibVersion)>("GetLibVersion")("K3610");
  if (Function<decltype(RegisterHardwareInit)>("RegisterHardwareInit")() != 0) return EXIT_FAILURE;
  Function<decltype(SetTriMode)>("SetTriMode")(0);
  Function<decltype(SetGlobalControl)>("SetGlobalControl")(1);
  dlclose(library);
  tessaline_board_set_sleep_factor(1);
  const timespec while_images_come{0, 300'000'000};
  nanosleep(&while_images_come, nullptr);
  raise(SIGINT);
  return EXIT_FAILURE;
}
