#pragma once

#include <cstdint>
#include <string>

namespace tool {

// A moment of the host clock as people write it, in nanoseconds since 1970: seconds from
// `start_ns` on ("2.5"), seconds since 1970 ("@1700000000.25"), or a date with a time, of the local
// clock ("2026-05-01T12:30:00.5") or UTC (with "Z" behind it). Throws Failure if it is none.
std::int64_t MomentOf(const std::string& text, std::int64_t start_ns);

// The same moment as a date in UTC: "2026-05-01T12:30:00.500Z".
std::string TextOfMoment(std::int64_t ns);

}  // namespace tool
