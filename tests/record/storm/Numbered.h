#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "record/BagWriter.h"

namespace storm {

// Messages that are known by their number: strips of random length and bytes, a millisecond apart.

// Writes message `number` of the series `seed`.
void WriteNumbered(tool::BagWriter& writer, unsigned seed, std::uint32_t number);

// What a writer had done when it was interrupted.
struct Progress {
  bool created = false;       // the writer's constructor had returned
  std::uint32_t synced = 0;   // messages before the last Sync() that returned
  std::uint32_t written = 0;  // messages that Write() was called with
  bool closing = false;       // Close() was called
};

// Returns what is wrong with the recording at `path` after an interruption; nothing if it is whole
// up to the last sync. Completes what a writer left half done, as every reader does.
std::optional<std::string> Problem(const std::filesystem::path& path, unsigned seed,
                                   const Progress& progress);

}  // namespace storm
