#include "record/SalvageReader.h"

#include <algorithm>
#include <limits>

namespace tool {
namespace {

constexpr std::int64_t kLastId = std::numeric_limits<std::int64_t>::max();

}  // namespace

std::optional<StoredMessage> SalvageReader::Next() {
  while (!ended_) {
    try {
      return reader_.Next();
    } catch (const Damaged&) {
      ended_ = !StepOver();
    }
  }
  return std::nullopt;
}

bool SalvageReader::ReadableBehind(std::int64_t id) {
  reader_.SkipTo(id);
  try {
    reader_.Next();
    return true;
  } catch (const Damaged&) {
    return false;
  }
}

// Looks further and further ahead, and then back for the first that can be read. That is one step
// for a damaged message, and few for a damaged page.
bool SalvageReader::StepOver() {
  std::int64_t damaged = reader_.position();
  const std::int64_t first = damaged == kLastId ? damaged : damaged + 1;
  std::int64_t whole = damaged;
  bool found = false;
  for (std::uint64_t step = 1; !found && whole < kLastId; step *= 2) {
    damaged = whole;
    const auto left = static_cast<std::uint64_t>(kLastId - whole);
    whole += static_cast<std::int64_t>(std::min(step, left));
    found = ReadableBehind(whole);
  }
  while (found && whole - damaged > 1) {
    const std::int64_t middle = damaged + (whole - damaged) / 2;
    (ReadableBehind(middle) ? whole : damaged) = middle;
  }
  ++damaged_;
  if (places_.size() < kMostPlaces) places_.push_back({first, found ? whole : kLastId, !found});
  if (found) reader_.SkipTo(whole);
  return found;
}

}  // namespace tool
