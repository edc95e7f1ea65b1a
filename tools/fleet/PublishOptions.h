#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Command.h"
#include "capture/RecordSource.h"
#include "fleet/PlaceOptions.h"
#include "fleet/ServerOptions.h"

namespace tool::fleet {

// The command line of "tessaline publish": for the program that publishes, and for the command that
// hands over to it.
struct PublishOptions {
  ServerOptions server;
  std::string url;  // the same as --server
  std::string name;
  std::string store;
  double store_megabytes = 1024;
  std::string drop = "newest";
  PlaceOptions place;
  double drain_seconds = 10;
  RecordSource source;

  CLI::App& Describe(CLI::App& parent, CommonOptions& common);
};

}  // namespace tool::fleet
