#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "ExitCode.h"

namespace tool {

// The command line as a whole.
class Application {
 public:
  explicit Application(std::vector<std::unique_ptr<Command>> commands = MakeCommands());

  // Parses and runs the command line. Prints one line on standard error if it fails.
  ExitCode Run(int argc, char** argv);

  // The same for a sub-command inside another, whose options also apply. It prints text for
  // people, or nothing if the outer one prints JSON.
  static ExitCode RunNested(std::vector<std::string> arguments, const CommonOptions& outer);

  // The parser, for manual pages and completion.
  const CLI::App& app() const { return app_; }

 private:
  void Parse(const std::function<void()>& parse);
  ExitCode Guarded(const std::function<ExitCode()>& run);
  ExitCode Carry(Session& session);

  CLI::App app_;
  CommonOptions common_;
  std::string man_;
  bool completion_ = false;
  std::vector<std::unique_ptr<Command>> commands_;
};

}  // namespace tool
