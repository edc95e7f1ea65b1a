#include <signal.h>

#include "Application.h"
#include "Interrupt.h"
#include "LibraryOutput.h"
#include "fleet/Commands.h"

// The commands of fleets are a program of their own, because they take libraries that the other
// commands do without.
int main(int argc, char** argv) {
  tool::LibraryOutput::ReserveStandardStreams();
  signal(SIGUSR1, SIG_IGN);
  std::vector<std::unique_ptr<tool::Command>> commands;
  commands.push_back(tool::fleet::MakePublishCommand());
  commands.push_back(tool::fleet::MakeSubscribeCommand());
  commands.push_back(tool::fleet::MakeFleetCommand());
  static auto* const application = new tool::Application(std::move(commands));
  tool::EndProcess(static_cast<int>(application->Run(argc, argv)));
}
