// Starts a product and ends: what is recorded is its start-up.
#include <unistd.h>

#include <cstdlib>

#include "tessaline/tessaline.h"

namespace {

void OnImage(unsigned, unsigned, void*) {}

}  // namespace

int main(int, char** argv) {
  GetLibVersion(argv[1]);
  log_set_quiet(true);
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  _exit(RegisterHardwareInit() == 0 ? EXIT_SUCCESS : EXIT_FAILURE);
}
