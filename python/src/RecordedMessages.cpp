#include "RecordedMessages.h"

#include <array>
#include <string>
#include <tuple>
#include <utility>

#include "Raise.h"
#include "record/Fields.h"

namespace py = pybind11;

namespace python {

namespace {

constexpr auto kEach = std::make_index_sequence<std::variant_size_v<AnyMessage>>();

template <std::size_t... I>
constexpr bool IsInOrder(std::index_sequence<I...>) {
  return ((std::variant_alternative_t<I, AnyMessage>::kTopic == tool::kTopics[I].topic) && ...);
}
static_assert(IsInOrder(kEach) && kEach.size() == tool::kTopics.size());

AnyMessage Blank(tool::Topic topic) {
  AnyMessage blank;
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    ((static_cast<std::size_t>(topic) == I ? static_cast<void>(blank.emplace<I>()) : void()), ...);
  }
  (kEach);
  return blank;
}

class FieldToPython {
 public:
  explicit FieldToPython(std::span<const std::byte> cdr) : cdr_(cdr) {}

  py::object operator()(const std::string& text) const { return Text(text); }
  py::object operator()(std::span<const std::byte> data) const {
    return py::make_tuple(data.data() - cdr_.data(), data.size());
  }
  py::object operator()(const std::vector<tool::PointsMessage::Field>& fields) const {
    py::list list;
    for (const auto& field : fields) {
      list.append(py::make_tuple(Text(field.name), field.offset, field.datatype, field.count));
    }
    return list;
  }
  py::object operator()(bool flag) const { return py::bool_(flag); }
  template <typename Number>
  py::object operator()(Number number) const {
    return py::int_(number);
  }

 private:
  const std::span<const std::byte> cdr_;
};

class FieldFromPython {
 public:
  FieldFromPython(const py::tuple& fields, std::optional<Bytes>& memory)
      : fields_(fields), memory_(memory) {}

  void operator()(std::span<const std::byte>& data) {
    memory_.emplace(fields_[next_++]);
    data = {static_cast<const std::byte*>(memory_->data()), memory_->size()};
  }
  // The tools make these, of strips.
  void operator()(std::vector<tool::PointsMessage::Field>&) {
    throw py::type_error("point clouds are only copied");
  }
  template <typename Value>
  void operator()(Value& value) {
    value = fields_[next_++].cast<Value>();
  }

 private:
  const py::tuple& fields_;
  std::optional<Bytes>& memory_;
  std::size_t next_ = 0;
};

}  // namespace

tool::Topic TopicOf(std::size_t number) {
  if (number >= tool::kTopics.size()) throw py::index_error("there is no such topic");
  return tool::kTopics[number].topic;
}

AnyMessage DecodeAny(tool::Topic topic, std::span<const std::byte> cdr) {
  AnyMessage any = Blank(topic);
  std::visit([&]<typename Message>(Message& message) { message = tool::Decode<Message>(cdr); },
             any);
  return any;
}

tool::Cdr EncodeAny(const AnyMessage& any) {
  return std::visit([](const auto& message) { return tool::Encode(message); }, any);
}

py::tuple ToPython(const AnyMessage& any, std::span<const std::byte> cdr) {
  return std::visit(
      [&](const auto& message) {
        return std::apply(
            [&](const auto&... field) -> py::tuple {
              return py::make_tuple(FieldToPython(cdr)(field)...);
            },
            tool::Fields(message));
      },
      any);
}

AnyMessage FromPython(tool::Topic topic, std::int64_t stamp_ns, const py::tuple& fields,
                      std::optional<Bytes>& memory) {
  AnyMessage any = Blank(topic);
  std::visit(
      [&](auto& message) {
        message.stamp_ns = stamp_ns;
        auto all = tool::Fields(message);
        if (fields.size() != std::tuple_size_v<decltype(all)>) {
          throw py::value_error("another number of fields");
        }
        FieldFromPython convert(fields, memory);
        std::apply([&](auto&... field) { (convert(field), ...); }, all);
      },
      any);
  return any;
}

}  // namespace python
