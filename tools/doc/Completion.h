#pragma once

#include <CLI/CLI.hpp>

#include "ExitCode.h"

namespace tool {

// Prints a bash completion for everything that the parser knows.
ExitCode WriteCompletion(const CLI::App& app);

}  // namespace tool
