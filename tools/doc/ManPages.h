#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "ExitCode.h"

namespace tool {

// Writes the manual pages into a directory, tessaline.1 and one per sub-command, from the texts of
// --help.
ExitCode WriteManPages(const CLI::App& app, const std::string& directory);

}  // namespace tool
