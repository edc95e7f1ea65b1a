#include "Application.h"
#include "Interrupt.h"

int main(int argc, char** argv) {
  // The library's threads run to the end of the process.
  static auto* const application = new tool::Application;
  tool::EndProcess(static_cast<int>(application->Run(argc, argv)));
}
