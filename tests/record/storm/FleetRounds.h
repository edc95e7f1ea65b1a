#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace storm {

// A power cut while a file of several sensors is written, on a simulated disk, in an empty folder.
// Another writer continues what is left of it. Returns what was wrong: a message that is there
// twice or not at all, or a file that cannot be continued.
std::optional<std::string> FleetPowerCut(const std::filesystem::path& folder, unsigned seed);

}  // namespace storm
