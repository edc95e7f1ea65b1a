#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace storm {

// A writer that is interrupted at a random moment, in an empty folder. The same seed is the same
// round, but for the moment at which a process is killed. Each returns what was wrong.

// SIGKILL to a process that writes as fast as it can.
std::optional<std::string> Kill(const std::filesystem::path& folder, unsigned seed);
// A power cut, on a simulated disk.
std::optional<std::string> PowerCut(const std::filesystem::path& folder, unsigned seed);
// A disk that becomes full, simulated; every other one is then cut from power.
std::optional<std::string> FullDisk(const std::filesystem::path& folder, unsigned seed);
// A small disk that becomes full. Mounted over the folder, for this process alone, which must not
// have other threads; where that is not allowed, returns the reason in `skipped`.
std::optional<std::string> SmallDisk(const std::filesystem::path& folder, unsigned seed,
                                     std::string& skipped);

}  // namespace storm
