// Starts a product and ends, so that its start-up can be recorded. With a second argument it also
// captures strips and takes interrupts, and runs until a signal ends it.
//
//   kernel_start MODEL [stay]
#include <unistd.h>

#include <cstdlib>

#include "tessaline/tessaline.h"

namespace {

void OnFrame(unsigned, unsigned, void*) {}

void Handler(int event) {
  RegisterEventHandler(event, reinterpret_cast<tessaline_event_handler>(OnFrame));
}

}  // namespace

int main(int argc, char** argv) {
  const bool stays = argc > 2;
  GetLibVersion(argv[1]);
  log_set_quiet(true);
  Handler(TESSALINE_EVENT_IMAGE);
  if (stays) Handler(TESSALINE_EVENT_STRIP);
  const bool started = RegisterHardwareInit() == 0;
  if (started && stays) {
    SetExtTriggerState(1);
    SetDADelayState(1);
  }
  while (started && stays) pause();
  _exit(started ? EXIT_SUCCESS : EXIT_FAILURE);
}
