#include <signal.h>

#include "Application.h"
#include "Interrupt.h"
#include "LibraryOutput.h"

int main(int argc, char** argv) {
  tool::LibraryOutput::ReserveStandardStreams();
  // "pkill -USR1 tessaline" is for a flight recorder, and others have its name.
  signal(SIGUSR1, SIG_IGN);
  // The library's threads run to the end of the process.
  static auto* const application = new tool::Application;
  tool::EndProcess(static_cast<int>(application->Run(argc, argv)));
}
