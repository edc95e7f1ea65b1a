#pragma once

#include <string>
#include <string_view>

namespace tool {

// A text that may come from a device or a file, safe for a terminal: control characters but line
// ends and tabs become "\\x1b".
std::string Printable(std::string_view text);

}  // namespace tool
