#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "record/BagReader.h"
#include "record/BagSource.h"

namespace tool {

// Where a recording cannot be read: messages with ids in between may be missing.
struct DamagedPlace {
  std::int64_t first_id = 0;
  std::int64_t last_id = 0;
  bool at_the_end = false;  // nothing behind it can be read either
};

// Reads a recording, and goes on behind what is damaged. Not for several threads at once.
class SalvageReader {
 public:
  // As BagReader.
  explicit SalvageReader(const BagSource& source)
      : reader_(source.path, Database::Mode::kSalvage, source.sensor) {}

  // The next message in the order of arrival that can be read; none at the end. Its id is larger
  // than all before. Throws Failure for what is no damage of the file.
  std::optional<StoredMessage> Next();

  // The places so far, at most kMostPlaces, and how many there are.
  const std::vector<DamagedPlace>& places() const { return places_; }
  std::uint64_t damaged() const { return damaged_; }
  const BagReader& reader() const { return reader_; }

  static constexpr std::size_t kMostPlaces = 100;

 private:
  bool StepOver();
  bool ReadableBehind(std::int64_t id);

  BagReader reader_;
  std::vector<DamagedPlace> places_;
  std::uint64_t damaged_ = 0;
  bool ended_ = false;
};

}  // namespace tool
