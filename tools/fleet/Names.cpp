#include "fleet/Names.h"

#include <fmt/core.h>

#include <algorithm>

#include "Failure.h"
#include "record/SensorName.h"

namespace tool::fleet {
namespace {

constexpr std::string_view kStreamStart = "tessaline:";

// Takes the first word off.
std::string_view NextWord(std::string_view& text) {
  const std::size_t dot = text.find('.');
  const std::string_view word = text.substr(0, dot);
  text = dot == text.npos ? std::string_view() : text.substr(dot + 1);
  return word;
}

std::string OneWord(std::string_view name) {
  std::string word(name);
  std::replace(word.begin(), word.end(), '.', ':');
  return word;
}

}  // namespace

bool IsPattern(std::string_view text) {
  if (text.empty() || text.size() > kMostSensorName || text.back() == '.') return false;
  while (!text.empty()) {
    const std::string_view word = NextWord(text);
    const bool rest = word == ">" && text.empty();
    if (!rest && word != "*" && !IsSensorName(word)) return false;
  }
  return true;
}

void RequireSubscriberName(std::string_view name) {
  if (name.find('.') == name.npos && IsSensorName(name)) return;
  throw Failure(ExitCode::kUsage,
                fmt::format("\"{}\" is no subscriber's name", name.substr(0, kMostSensorName)),
                "a name has letters, digits, - and _");
}

bool Matches(std::string_view pattern, std::string_view name) {
  while (!pattern.empty() && !name.empty()) {
    const std::string_view wanted = NextWord(pattern);
    if (wanted == ">") return true;
    const std::string_view word = NextWord(name);
    if (wanted != "*" && wanted != word) return false;
  }
  return pattern.empty() && name.empty();
}

std::string DataSubject(std::string_view kind, std::string_view sensor) {
  return fmt::format("tessaline.data.{}.{}", kind, sensor);
}

std::string PresenceSubject(std::string_view sensor) {
  return fmt::format("tessaline.presence.{}", sensor);
}

std::string ControlSubject(std::string_view verb, std::string_view sensor) {
  return fmt::format("tessaline.control.{}{}{}", verb, sensor.empty() ? "" : ".", sensor);
}

std::string InboxPrefix(Role role, std::string_view name) {
  if (role == Role::kOperator) return "_INBOX.operator";
  // One word: what "line3" may read does not begin what is for "line3.left".
  return fmt::format("_INBOX.{}.{}", role == Role::kSensor ? "sensor" : "subscriber",
                     OneWord(name));
}

std::string DeliverySubject(std::string_view subscriber, std::string_view sensor) {
  return fmt::format("tessaline.delivery.{}.{}", subscriber, sensor);
}

std::string StreamName(std::string_view sensor) {
  return std::string(kStreamStart) + OneWord(sensor);
}

std::optional<std::string> SensorOfStream(std::string_view stream) {
  if (!stream.starts_with(kStreamStart)) return std::nullopt;
  std::string name(stream.substr(kStreamStart.size()));
  std::replace(name.begin(), name.end(), ':', '.');
  if (!IsSensorName(name)) return std::nullopt;
  return name;
}

}  // namespace tool::fleet
