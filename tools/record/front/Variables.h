#pragma once

namespace tool {

// The environment tells the library in front which ring to write to, and what of these to record:
// "strips images registers".
inline constexpr const char* kRingVariable = "TESSALINE_RECORD";
inline constexpr const char* kWhatVariable = "TESSALINE_RECORD_WHAT";

}  // namespace tool
