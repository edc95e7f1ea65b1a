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

  std::string sensor;  // of a file of several; else empty
  int version = 0;
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
  // Missing frames that a gap message should have named: one is written for all that publishers and
  // the way from them lose. In a recording of one sensor nobody writes them.
  std::uint64_t Unexplained() const {
    return sensor.empty() ? 0 : contents.strips().unexplained() + contents.images().unexplained();
  }
};

// Reads all of a recording and says what is whole; a damaged one never stops it halfway. In memory
// that does not grow with the file. Throws Failure if it cannot be read at all, is no recording
// or a newer one. Ends early, with Failure, when `stop` says so; it is asked often.
BagFindings ReadBag(const BagSource& source, const std::function<bool()>& stop);
// The same of each sensor in a file of several, unless one of them is asked for. At least one.
std::vector<BagFindings> ReadBags(const BagSource& source, const std::function<bool()>& stop);
// The same, and lets SQLite check the file itself: reads it once more. Its complaints are in the
// first findings.
std::vector<BagFindings> CheckBags(const BagSource& source, const std::function<bool()>& stop);

}  // namespace tool
