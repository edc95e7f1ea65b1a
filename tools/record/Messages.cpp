#include "record/Messages.h"

#include <fastcdr/Cdr.h>
#include <fastcdr/exceptions/Exception.h>
#include <fmt/format.h>

#include <tuple>

#include "Failure.h"

namespace tool {
namespace {

using eprosima::fastcdr::FastBuffer;

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
// The encapsulation, every fixed field and its alignment of the largest message.
constexpr std::size_t kMostFixedBytes = 128;

// Each message's fields in the order of its definition. Coding goes through here in both
// directions, so that they cannot differ.
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
  } else if constexpr (std::is_same_v<Plain, PointsMessage::Field>) {
    return std::tie(m.name, m.offset, m.datatype, m.count);
  } else {
    return std::tie(m.json);
  }
}

std::size_t VariableBytes(const std::string& text) { return text.size() + 1; }
std::size_t VariableBytes(std::span<const std::byte> data) { return data.size(); }
std::size_t VariableBytes(const std::vector<PointsMessage::Field>& fields) {
  std::size_t bytes = 0;
  for (const auto& field : fields) bytes += kMostFixedBytes + VariableBytes(field.name);
  return bytes;
}
template <typename Number>
std::size_t VariableBytes(Number) {
  return 0;
}

class Encoder {
 public:
  explicit Encoder(eprosima::fastcdr::Cdr& cdr) : cdr_(cdr) {}

  template <typename Value>
  void operator()(const Value& value) {
    cdr_.serialize(value);
  }
  void operator()(std::span<const std::byte> data) {
    cdr_.serialize(static_cast<std::uint32_t>(data.size()));
    cdr_.serializeArray(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
  }
  void operator()(const std::vector<PointsMessage::Field>& fields) {
    cdr_.serialize(static_cast<std::uint32_t>(fields.size()));
    for (const auto& field : fields) {
      std::apply([this](const auto&... part) { ((*this)(part), ...); }, Fields(field));
    }
  }

 private:
  eprosima::fastcdr::Cdr& cdr_;
};

class Decoder {
 public:
  Decoder(eprosima::fastcdr::Cdr& cdr, std::span<const std::byte> bytes)
      : cdr_(cdr), bytes_(bytes) {}

  template <typename Value>
  void operator()(Value& value) {
    cdr_.deserialize(value);
  }
  // Only single bytes may follow it: jump() leaves the alignment of anything else undefined.
  void operator()(std::span<const std::byte>& data) {
    std::uint32_t length = 0;
    cdr_.deserialize(length);
    const std::size_t at = cdr_.getSerializedDataLength();
    if (length > bytes_.size() - at) {
      throw eprosima::fastcdr::exception::NotEnoughMemoryException("a length beyond the end");
    }
    data = bytes_.subspan(at, length);
    cdr_.jump(length);
  }
  void operator()(std::vector<PointsMessage::Field>& fields) {
    std::uint32_t count = 0;
    cdr_.deserialize(count);
    // One by one: a wrong count comes to the end of the bytes before it takes memory.
    for (std::uint32_t i = 0; i < count; ++i) {
      PointsMessage::Field field;
      std::apply([this](auto&... part) { ((*this)(part), ...); }, Fields(field));
      fields.push_back(std::move(field));
    }
  }

 private:
  eprosima::fastcdr::Cdr& cdr_;
  const std::span<const std::byte> bytes_;
};

}  // namespace

template <typename Message>
Cdr Encode(const Message& message) {
  const auto fields = Fields(message);
  Cdr bytes(kMostFixedBytes +
            std::apply([](const auto&... field) { return (VariableBytes(field) + ...); }, fields));
  FastBuffer buffer(reinterpret_cast<char*>(bytes.data()), bytes.size());
  eprosima::fastcdr::Cdr cdr(buffer, eprosima::fastcdr::Cdr::LITTLE_ENDIANNESS,
                             eprosima::fastcdr::Cdr::DDS_CDR);
  cdr.serialize_encapsulation();
  Encoder encode(cdr);
  encode(static_cast<std::int32_t>(message.stamp_ns / kNsPerSecond));
  encode(static_cast<std::uint32_t>(message.stamp_ns % kNsPerSecond));
  std::apply([&](const auto&... field) { (encode(field), ...); }, fields);
  bytes.resize(cdr.getSerializedDataLength());
  return bytes;
}

template <typename Message>
Message Decode(std::span<const std::byte> bytes) {
  Message message;
  // It only reads, but its interface knows no const.
  FastBuffer buffer(const_cast<char*>(reinterpret_cast<const char*>(bytes.data())), bytes.size());
  eprosima::fastcdr::Cdr cdr(buffer, eprosima::fastcdr::Cdr::LITTLE_ENDIANNESS,
                             eprosima::fastcdr::Cdr::DDS_CDR);
  try {
    cdr.read_encapsulation();
    Decoder decode(cdr, bytes);
    std::int32_t seconds = 0;
    std::uint32_t nanoseconds = 0;
    decode(seconds);
    decode(nanoseconds);
    message.stamp_ns = seconds * kNsPerSecond + nanoseconds;
    std::apply([&](auto&... field) { (decode(field), ...); }, Fields(message));
  } catch (const eprosima::fastcdr::exception::Exception& error) {
    throw Failure(ExitCode::kFile, fmt::format("a message of {} is damaged: {}",
                                               EntryOf(Message::kTopic).name, error.what()));
  }
  return message;
}

template Cdr Encode(const StripsMessage&);
template StripsMessage Decode(std::span<const std::byte>);
template Cdr Encode(const ImageMessage&);
template ImageMessage Decode(std::span<const std::byte>);
template Cdr Encode(const RegisterMessage&);
template RegisterMessage Decode(std::span<const std::byte>);
template Cdr Encode(const EventMessage&);
template EventMessage Decode(std::span<const std::byte>);
template Cdr Encode(const LossesMessage&);
template LossesMessage Decode(std::span<const std::byte>);
template Cdr Encode(const ClockMessage&);
template ClockMessage Decode(std::span<const std::byte>);
template Cdr Encode(const LogMessage&);
template LogMessage Decode(std::span<const std::byte>);
template Cdr Encode(const DeviceMessage&);
template DeviceMessage Decode(std::span<const std::byte>);
template Cdr Encode(const PointsMessage&);
template PointsMessage Decode(std::span<const std::byte>);
template Cdr Encode(const PictureMessage&);
template PictureMessage Decode(std::span<const std::byte>);

}  // namespace tool
