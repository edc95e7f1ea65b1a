#pragma once

#include <tuple>
#include <type_traits>

#include "record/Messages.h"

namespace tool {

// References to a message's fields behind its stamp, in the order of its definition. All coding
// goes through here in both directions, so that they cannot differ.
template <typename M>
auto Fields(M& m) {
  using Plain = std::remove_const_t<M>;
  if constexpr (std::is_same_v<Plain, StripsMessage>) {
    return std::tie(m.strips, m.point_bytes, m.data);
  } else if constexpr (std::is_same_v<Plain, ImageMessage>) {
    return std::tie(m.width, m.height, m.data);
  } else if constexpr (std::is_same_v<Plain, RegisterMessage>) {
    return std::tie(m.address, m.value);
  } else if constexpr (std::is_same_v<Plain, EventMessage>) {
    return std::tie(m.name, m.value);
  } else if constexpr (std::is_same_v<Plain, LossesMessage>) {
    return std::tie(m.frames_by_device, m.frames_by_recorder, m.messages_by_recorder);
  } else if constexpr (std::is_same_v<Plain, ClockMessage>) {
    return std::tie(m.ticks, m.uncertainty_ns);
  } else if constexpr (std::is_same_v<Plain, LogMessage>) {
    return std::tie(m.level, m.name, m.msg, m.file, m.function, m.line);
  } else {
    return std::tie(m.json);
  }
}

}  // namespace tool
