#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "record/BagReader.h"

namespace tool {

// Stamps, nanoseconds since 1970, both ends included.
struct StampRange {
  std::int64_t first = std::numeric_limits<std::int64_t>::min();
  std::int64_t last = std::numeric_limits<std::int64_t>::max();
};

// The messages of some topics in a span of time, in the order of arrival. Of one reader there may
// be several; only one call at a time for all of them.
class BagQuery {
 public:
  // The reader must live longer. Throws Failure.
  BagQuery(const BagReader& reader, const std::vector<Topic>& topics, const StampRange& range = {});

  // The next one; none at the end, and after a failure. Throws Failure.
  std::optional<StoredMessage> Next();

 private:
  const BagReader& reader_;
  Statement messages_;
  bool ended_ = false;
};

// Stamps of the first and the last message. None: there are no messages.
std::optional<StampRange> StampsOf(const BagReader& reader);

// How many messages there are of each topic. Goes through the whole file.
std::array<std::int64_t, kTopics.size()> CountMessages(const BagReader& reader);

}  // namespace tool
