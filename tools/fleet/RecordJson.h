#pragma once

#include <optional>
#include <string>

#include "Json.h"
#include "fleet/Packet.h"
#include "ring/RecordRing.h"

namespace tool::fleet {

// Records without frames, as readers in any language like them. None: such records are not sent.
std::optional<Kind> JsonKindOf(ring::Kind kind);
Json ToJson(const ring::Record& record);

// The other way round. `payload` is where the record's payload is kept. Throws a Failure unless it
// is one.
ring::Record RecordIn(Kind kind, std::int64_t stamp_ns, const Json& json, std::string& payload);

}  // namespace tool::fleet
