#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// What a program of the system prints, looked up in PATH and where root's programs are. It runs
// without a virtual board and without our terminal, and is killed when it takes longer. Nothing if
// there is no such program.
std::optional<std::string> ProgramOutput(const std::vector<std::string>& words,
                                         std::chrono::milliseconds most);

}  // namespace tool
