#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "Command.h"
#include "fleet/ServerOptions.h"

namespace tool::fleet {

// The command line of "tessaline subscribe".
struct SubscribeOptions {
  ServerOptions server;
  std::string pattern;
  std::string output;
  std::string name = "archive";
  std::uint64_t frames = 0;
  double seconds = 0;
  bool once = false;
  bool strict = false;
  std::string merge;
  double patience = 1;

  CLI::App& Describe(CLI::App& parent, CommonOptions& common);
};

}  // namespace tool::fleet
