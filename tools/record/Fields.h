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
  } else if constexpr (std::is_same_v<Plain, PointsMessage>) {
    return std::tie(m.frame_id, m.height, m.width, m.fields, m.is_bigendian, m.point_step,
                    m.row_step, m.data, m.is_dense);
  } else if constexpr (std::is_same_v<Plain, PictureMessage>) {
    return std::tie(m.frame_id, m.height, m.width, m.encoding, m.is_bigendian, m.step, m.data);
  } else if constexpr (std::is_same_v<Plain, GapMessage>) {
    return std::tie(m.reason, m.run, m.end_known, m.strips_first, m.strips_last, m.strips_count,
                    m.images_first, m.images_last, m.images_count, m.others);
  } else if constexpr (std::is_same_v<Plain, PointsMessage::Field>) {
    return std::tie(m.name, m.offset, m.datatype, m.count);
  } else {
    return std::tie(m.json);
  }
}

}  // namespace tool
