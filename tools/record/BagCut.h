#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "record/BagSource.h"
#include "record/Contents.h"

namespace tool {

// The part of a recording that is wanted; what is not given does not limit it. Both ends belong to
// it.
struct BagRange {
  std::optional<std::int64_t> from_ns;  // host clock, since 1970
  std::optional<std::int64_t> to_ns;
  std::optional<std::uint64_t> first_id;  // of frames
  std::optional<std::uint64_t> last_id;
};

struct BagCutResult {
  Contents contents;          // of the new recording
  std::uint64_t damaged = 0;  // messages and places that could not be copied
};

// Copies a part of a recording into a new one of one sensor, which stands by itself: the values of
// all registers, what is known about the device, and the counts of losses at its begin stand in
// front. Buffers of strips are cut to the strips in the range. With a limit by ids, whatever is no
// frame is copied from the first such frame to the last.
//
// Throws Failure if nothing is in the range, `to` exists or cannot be written; there is no new
// recording then. The same when `stop`, which is asked often, says so.
BagCutResult CutBag(const BagSource& from, const std::string& to, const BagRange& range,
                    const std::function<bool()>& stop);

// When the first message came, nanoseconds since 1970; 0 without one.
std::int64_t StartOf(const BagSource& source);

}  // namespace tool
