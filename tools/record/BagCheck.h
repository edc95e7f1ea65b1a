#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "record/Contents.h"
#include "record/SalvageReader.h"

namespace tool {

// What a check of a recording finds.
struct BagFindings {
  static constexpr std::size_t kMostKept = 100;  // of each list
  static constexpr int kMostIntegrityLines = 20;

  // Messages one behind the other without damage between them.
  struct Stretch {
    Span span;
    std::int64_t first_id = 0;
    std::int64_t last_id = 0;
    std::uint64_t messages = 0;
    std::uint64_t strips = 0;  // frames
    std::uint64_t images = 0;
  };
  // A message that is there and cannot be used.
  struct BadMessage {
    std::int64_t id;
    std::string what;
  };

  bool closed = false;
  std::int64_t synced_ns = 0;
  std::vector<std::string> integrity;  // SQLite's complaints
  std::vector<DamagedPlace> places;    // that cannot be read
  std::uint64_t place_count = 0;
  std::vector<BadMessage> bad;
  std::uint64_t bad_count = 0;
  std::vector<Stretch> whole;
  std::uint64_t whole_count = 0;
  Contents contents;  // of all that is whole

  bool damaged() const { return !integrity.empty() || place_count > 0 || bad_count > 0; }
};

// Reads all of a recording and says what is whole; a damaged one never stops it halfway. In memory
// that does not grow with the file. Throws Failure if `path` cannot be read at all, is no recording
// or a newer one. Ends early, with Failure, when `stop` says so; it is asked often.
BagFindings ReadBag(const std::string& path, const std::function<bool()>& stop);
// The same, and lets SQLite check the file itself: reads it twice.
BagFindings CheckBag(const std::string& path, const std::function<bool()>& stop);

}  // namespace tool
