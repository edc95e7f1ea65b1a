#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/Head.h"
#include "model/Target.h"

namespace board {

// What is in front of the sensor, and through what it is seen.
struct View {
  std::optional<Head> head;      // none: ideal optics
  std::optional<Target> target;  // none: the belt with its objects
};

// These take the text of the environment. They return what is wrong with it, or an empty text.

// No seed: ideal optics.
std::string ReadOptics(std::string_view text, std::optional<std::uint64_t>& seed);
// No target: the belt.
std::string ReadScene(std::string_view text, std::optional<Target>& target);

}  // namespace board
