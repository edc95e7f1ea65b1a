#include <cstdlib>

#include "Application.h"

int main(int argc, char** argv) {
  // The library's threads run to the end of the process.
  auto* const application = new tool::Application;
  std::exit(static_cast<int>(application->Run(argc, argv)));
}
