#include "Application.h"
#include "Interrupt.h"
#include "LibraryOutput.h"

int main(int argc, char** argv) {
  tool::LibraryOutput::ReserveStandardStreams();
  // The library's threads run to the end of the process.
  static auto* const application = new tool::Application;
  tool::EndProcess(static_cast<int>(application->Run(argc, argv)));
}
