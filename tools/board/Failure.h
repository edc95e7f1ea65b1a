#pragma once

#include <stdexcept>
#include <string>

namespace runner {

// What a shell says of a program, and what the command says of its own command line.
enum class ExitCode : int { kUsage = 2, kCannotRun = 126, kNotFound = 127 };

// Why the program does not run.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace runner
