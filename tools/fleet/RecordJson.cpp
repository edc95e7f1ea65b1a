#include "fleet/RecordJson.h"

#include <span>

#include "Failure.h"
#include "record/Messages.h"

namespace tool::fleet {
namespace {

constexpr const char* kNothing = "a message does not say what its kind has to";

std::string_view PayloadText(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::uint64_t NumberAt(const Json& json, const char* key) {
  const Json& number = json.at(key);
  if (!number.is_number_unsigned()) throw Failure(ExitCode::kFile, kNothing);
  return number;
}

}  // namespace

std::optional<Kind> JsonKindOf(ring::Kind kind) {
  switch (kind) {
    case ring::Kind::kTrigger:
    case ring::Kind::kDaArrived:
      return Kind::kEvents;
    case ring::Kind::kClock:
      return Kind::kClock;
    case ring::Kind::kLost:
      return Kind::kLosses;
    case ring::Kind::kLog:
      return Kind::kLog;
    case ring::Kind::kDevice:
      return Kind::kDevice;
    default:
      return std::nullopt;
  }
}

Json ToJson(const ring::Record& record) {
  switch (record.kind) {
    case ring::Kind::kTrigger:
      return {{"name", kTriggerEvent}, {"value", record.first}};
    case ring::Kind::kDaArrived:
      return {{"name", kDaArrivedEvent}, {"value", 0}};
    case ring::Kind::kClock:
      return {{"ticks", record.first}, {"uncertainty_ns", record.second}};
    case ring::Kind::kLost:
      return {{"frames_by_device", record.first}};
    case ring::Kind::kLog: {
      const std::string_view text = PayloadText(record.payload);
      const std::size_t end = text.find('\0');
      return {{"level", record.first},
              {"line", record.second},
              {"file", text.substr(0, end)},
              {"message", end == text.npos ? "" : text.substr(end + 1)}};
    }
    default: {
      Json json = Json::parse(PayloadText(record.payload), nullptr, false);
      return json.is_object() ? json : Json::object();
    }
  }
}

ring::Record RecordIn(Kind kind, std::int64_t stamp_ns, const Json& json, std::string& payload) {
  ring::Record record;
  record.stamp_ns = stamp_ns;
  try {
    switch (kind) {
      case Kind::kEvents:
        record.kind =
            json.at("name") == kDaArrivedEvent ? ring::Kind::kDaArrived : ring::Kind::kTrigger;
        record.first = NumberAt(json, "value");
        break;
      case Kind::kClock:
        record.kind = ring::Kind::kClock;
        record.first = NumberAt(json, "ticks");
        record.second = NumberAt(json, "uncertainty_ns");
        break;
      case Kind::kLosses:
        record.kind = ring::Kind::kLost;
        record.first = NumberAt(json, "frames_by_device");
        break;
      case Kind::kLog:
        record.kind = ring::Kind::kLog;
        record.first = NumberAt(json, "level");
        record.second = NumberAt(json, "line");
        payload = json.at("file").get<std::string>() + '\0' + json.at("message").get<std::string>();
        break;
      default:
        if (!json.is_object()) throw Failure(ExitCode::kFile, kNothing);
        record.kind = ring::Kind::kDevice;
        payload = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
  } catch (const Json::exception&) {
    throw Failure(ExitCode::kFile, kNothing);
  }
  record.payload = std::as_bytes(std::span(payload.data(), payload.size()));
  return record;
}

}  // namespace tool::fleet
