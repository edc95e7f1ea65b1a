#include <signal.h>

#include <cstring>
#include <vector>

#include "Application.h"
#include "Interrupt.h"
#include "LibraryOutput.h"
#include "serve/ServeCommand.h"

// "tessaline serve" is a program of its own, because it takes libraries that the other commands do
// without. It may also be started by its own name, without the word "serve".
int main(int argc, char** argv) {
  tool::LibraryOutput::ReserveStandardStreams();
  signal(SIGUSR1, SIG_IGN);
  std::vector<char*> words(argv, argv + argc);
  char serve[] = "serve";
  if (argc < 2 || strcmp(argv[1], serve) != 0) words.insert(words.begin() + 1, serve);
  const int count = static_cast<int>(words.size());
  words.push_back(nullptr);
  std::vector<std::unique_ptr<tool::Command>> commands;
  commands.push_back(tool::serve::MakeServeCommand());
  static auto* const application = new tool::Application(std::move(commands));
  tool::EndProcess(static_cast<int>(application->Run(count, words.data())));
}
