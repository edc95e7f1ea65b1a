#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Acquisition.h"
#include "Command.h"
#include "Measuring.h"

namespace tool::serve {

// The command line of "tessaline serve": for the program that serves, and for the command that
// hands over to it.
struct ServeOptions {
  std::string address = "127.0.0.1";
  unsigned short port = 8080;
  std::string token_file;
  std::string certificate;
  std::string key;
  std::vector<std::string> hosts;
  std::string recordings;
  bool guard = false;  // this is the process that watches over the laser
  Acquisition acquisition;
  MeasuringOptions measuring;

  CLI::App& Describe(CLI::App& parent, CommonOptions& common);
};

}  // namespace tool::serve
