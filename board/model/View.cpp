#include "model/View.h"

#include <fmt/format.h>

#include <charconv>

namespace board {

std::string ReadOptics(std::string_view text, std::optional<std::uint64_t>& seed) {
  constexpr std::string_view kSeeded = "real:";
  seed.reset();
  if (text == "ideal") return {};
  if (text == "real") text = "real:1";
  if (text.starts_with(kSeeded)) {
    std::uint64_t number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + kSeeded.size(), last, number);
    if (error == std::errc() && end == last) {
      seed = number;
      return {};
    }
  }
  return fmt::format("there are no optics \"{}\"; there are ideal, real and real:SEED", text);
}

std::string ReadScene(std::string_view text, std::optional<Target>& target) {
  std::string wrong;
  target.reset();
  if (text != "belt") target = Target::Parse(text, wrong);
  return wrong;
}

}  // namespace board
