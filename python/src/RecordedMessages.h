#pragma once

#include <pybind11/pybind11.h>

#include <cstddef>
#include <optional>
#include <span>
#include <variant>

#include "Bytes.h"
#include "record/Messages.h"

namespace python {

// Any message of a recording, in the order of its topics.
using AnyMessage =
    std::variant<tool::StripsMessage, tool::ImageMessage, tool::RegisterMessage, tool::EventMessage,
                 tool::LossesMessage, tool::ClockMessage, tool::LogMessage, tool::DeviceMessage,
                 tool::PointsMessage, tool::PictureMessage, tool::GapMessage>;

// Raises an IndexError unless there is such a topic.
tool::Topic TopicOf(std::size_t number);

// Needs no GIL. Throws tool::Failure.
AnyMessage DecodeAny(tool::Topic topic, std::span<const std::byte> cdr);

// Needs no GIL.
tool::Cdr EncodeAny(const AnyMessage& message);

// The fields behind the stamp, in the order of the definition. Data is where it lies in `cdr`, from
// which the message was decoded: its offset and length.
pybind11::tuple ToPython(const AnyMessage& message, std::span<const std::byte> cdr);

// The other way. Data is any object that shows its bytes, which `memory` keeps: it must live as
// long as the message. Raises a TypeError or ValueError for fields of another message.
AnyMessage FromPython(tool::Topic topic, std::int64_t stamp_ns, const pybind11::tuple& fields,
                      std::optional<Bytes>& memory);

}  // namespace python
