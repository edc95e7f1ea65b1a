#pragma once

#include <fmt/core.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

// "1 image", "2 images".
inline std::string Counted(std::uint64_t count, std::string_view one) {
  return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

}  // namespace tool
