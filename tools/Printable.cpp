#include "Printable.h"

#include <fmt/format.h>

namespace tool {

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    const bool control = (code < ' ' && c != '\n' && c != '\t') || code == 0x7F;
    if (control) {
      fmt::format_to(std::back_inserter(printable), "\\x{:02x}", code);
    } else {
      printable += c;
    }
  }
  return printable;
}

}  // namespace tool
