#include "fleet/Names.h"

#include <fmt/core.h>

#include <algorithm>

namespace tool::fleet {
namespace {

constexpr std::string_view kStreamStart = "tessaline:";

bool IsWord(std::string_view word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), [](unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '-' || c == '_';
  });
}

// Takes the first word off.
std::string_view NextWord(std::string_view& text) {
  const std::size_t dot = text.find('.');
  const std::string_view word = text.substr(0, dot);
  text = dot == text.npos ? std::string_view() : text.substr(dot + 1);
  return word;
}

template <typename Accepts>
bool ConsistsOf(std::string_view text, Accepts accepts) {
  if (text.empty() || text.size() > kMostNameBytes || text.back() == '.') return false;
  while (!text.empty()) {
    const std::string_view word = NextWord(text);
    if (!accepts(word, /*last=*/text.empty())) return false;
  }
  return true;
}

}  // namespace

bool IsName(std::string_view text) {
  return ConsistsOf(text, [](std::string_view word, bool) { return IsWord(word); });
}

bool IsPattern(std::string_view text) {
  return ConsistsOf(text, [](std::string_view word, bool last) {
    return IsWord(word) || word == "*" || (word == ">" && last);
  });
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
  return fmt::format("tessaline.control.{}.{}", verb, sensor);
}

std::string DeliverySubject(std::string_view subscriber, std::string_view sensor) {
  return fmt::format("tessaline.delivery.{}.{}", subscriber, sensor);
}

std::string StreamName(std::string_view sensor) {
  std::string name(sensor);
  std::replace(name.begin(), name.end(), '.', ':');
  return std::string(kStreamStart) + name;
}

std::optional<std::string> SensorOfStream(std::string_view stream) {
  if (!stream.starts_with(kStreamStart)) return std::nullopt;
  std::string name(stream.substr(kStreamStart.size()));
  std::replace(name.begin(), name.end(), ':', '.');
  if (!IsName(name)) return std::nullopt;
  return name;
}

}  // namespace tool::fleet
