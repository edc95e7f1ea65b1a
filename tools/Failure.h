#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "ExitCode.h"

namespace tool {

// Ends a command: what went wrong and what to do next, printed in one line.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& what, std::string next = {})
      : std::runtime_error(what), code_(code), next_(std::move(next)) {}

  ExitCode code() const { return code_; }
  const std::string& next() const { return next_; }

 private:
  ExitCode code_;
  std::string next_;
};

}  // namespace tool
