#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Command.h"
#include "fleet/PlaceOptions.h"
#include "fleet/ServerOptions.h"

namespace tool::fleet {

// The command line of "tessaline fleet".
struct FleetOptions {
  ServerOptions server;
  std::string pattern = ">";
  std::string recipe;
  std::string output;
  std::string name;
  std::string key;
  std::string subscriber;
  double patience = 1;
  bool discard = false;
  PlaceOptions place;
  std::vector<std::string> application;

  CLI::App* status = nullptr;
  CLI::App* set = nullptr;
  CLI::App* add = nullptr;
  CLI::App* forget = nullptr;
  CLI::App* show = nullptr;
  CLI::App* make_key = nullptr;
  CLI::App* rights = nullptr;
  std::string role = "sensor";

  CLI::App& Describe(CLI::App& parent, CommonOptions& common);
};

}  // namespace tool::fleet
