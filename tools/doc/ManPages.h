#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "ExitCode.h"

namespace tool {

// Writes the manual pages into a directory, tessaline.1 and one a sub-command, from what
// --help shows.
ExitCode WriteManPages(const CLI::App& app, const std::string& directory);

}  // namespace tool
