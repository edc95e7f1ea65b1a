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
  Application();

  // Parses and carries out. What goes wrong is told in one line on the standard error
  // stream.
  ExitCode Run(int argc, char** argv);

  // The same for a sub-command that runs inside of another, whose options hold for it too;
  // it prints for people, or nothing if that one prints JSON.
  static ExitCode RunNested(std::vector<std::string> arguments, const CommonOptions& outer);

  // The parser with all that it knows, for manual pages and completion.
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
