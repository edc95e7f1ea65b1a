#include "record/Messages.h"

#include <fastcdr/Cdr.h>
#include <fastcdr/exceptions/BadParamException.h>
#include <fastcdr/exceptions/Exception.h>
#include <fmt/format.h>

#include <chrono>
#include <tuple>

#include "Failure.h"
#include "record/Fields.h"

namespace tool {
namespace {

using eprosima::fastcdr::FastBuffer;

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
// The encapsulation, every fixed field and its alignment of the largest message.
constexpr std::size_t kMostFixedBytes = 128;
// No sensor has as many.
constexpr std::uint32_t kMostPointFields = 256;

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
    // In memory, they take more than in the bytes.
    if (count > kMostPointFields) {
      throw eprosima::fastcdr::exception::BadParamException("too many fields of a point");
    }
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
void EncodeInto(const Message& message, Cdr& bytes) {
  const auto fields = Fields(message);
  bytes.resize(
      kMostFixedBytes +
      std::apply([](const auto&... field) { return (VariableBytes(field) + ...); }, fields));
  FastBuffer buffer(reinterpret_cast<char*>(bytes.data()), bytes.size());
  eprosima::fastcdr::Cdr cdr(buffer, eprosima::fastcdr::Cdr::LITTLE_ENDIANNESS,
                             eprosima::fastcdr::Cdr::DDS_CDR);
  cdr.serialize_encapsulation();
  Encoder encode(cdr);
  const std::chrono::nanoseconds stamp(message.stamp_ns);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(stamp);
  encode(static_cast<std::int32_t>(seconds.count()));
  encode(static_cast<std::uint32_t>((stamp - seconds).count()));
  std::apply([&](const auto&... field) { (encode(field), ...); }, fields);
  bytes.resize(cdr.getSerializedDataLength());
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
    if (nanoseconds >= kNsPerSecond) {
      throw eprosima::fastcdr::exception::BadParamException("a stamp with too many nanoseconds");
    }
    message.stamp_ns = seconds * kNsPerSecond + nanoseconds;
    std::apply([&](auto&... field) { (decode(field), ...); }, Fields(message));
  } catch (const eprosima::fastcdr::exception::Exception& error) {
    throw Failure(ExitCode::kFile, fmt::format("a message of {} is damaged: {}",
                                               EntryOf(Message::kTopic).name, error.what()));
  }
  return message;
}

template void EncodeInto(const StripsMessage&, Cdr&);
template StripsMessage Decode(std::span<const std::byte>);
template void EncodeInto(const ImageMessage&, Cdr&);
template ImageMessage Decode(std::span<const std::byte>);
template void EncodeInto(const RegisterMessage&, Cdr&);
template RegisterMessage Decode(std::span<const std::byte>);
template void EncodeInto(const EventMessage&, Cdr&);
template EventMessage Decode(std::span<const std::byte>);
template void EncodeInto(const LossesMessage&, Cdr&);
template LossesMessage Decode(std::span<const std::byte>);
template void EncodeInto(const ClockMessage&, Cdr&);
template ClockMessage Decode(std::span<const std::byte>);
template void EncodeInto(const LogMessage&, Cdr&);
template LogMessage Decode(std::span<const std::byte>);
template void EncodeInto(const DeviceMessage&, Cdr&);
template DeviceMessage Decode(std::span<const std::byte>);
template void EncodeInto(const PointsMessage&, Cdr&);
template PointsMessage Decode(std::span<const std::byte>);
template void EncodeInto(const PictureMessage&, Cdr&);
template PictureMessage Decode(std::span<const std::byte>);
template void EncodeInto(const GapMessage&, Cdr&);
template GapMessage Decode(std::span<const std::byte>);

}  // namespace tool
