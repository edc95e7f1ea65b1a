#include "record/DeviceNotes.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "EepromStore.h"
#include "Failure.h"

namespace tool {

using nlohmann::json;

void DeviceNotes::Add(std::string_view text) {
  const auto refuse = [](const char* what) {
    throw Failure(ExitCode::kFile, fmt::format("a message of /tessaline/device {}", what));
  };
  if (text.size() > kMostBytes) refuse("has more than 256 KiB");
  // What was replaced takes no memory: a sensor that has started often says the same again.
  if (text.size() > kMostBytes - bytes_) {
    bytes_ = std::min(kMostBytes, all_.dump().size());
  }
  if (text.size() > kMostBytes - bytes_) refuse("and those before it have more than 256 KiB");
  bool deep = false;
  // Not just refused by itself: printing it would need a stack of that depth.
  const auto limit = [&deep](int depth, json::parse_event_t, const json&) {
    deep |= depth > kMostDepth;
    return !deep;
  };
  const json note = json::parse(text, limit, /*allow_exceptions=*/false);
  if (deep) refuse("is nested too deeply");
  if (!note.is_object()) refuse("is no JSON object");
  bytes_ += text.size();
  all_.update(note);
}

std::optional<std::string> DeviceNotes::Text(const char* key) const {
  const auto found = all_.find(key);
  if (found == all_.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::optional<json> DeviceNotes::Object(const char* key) const {
  const auto found = all_.find(key);
  if (found == all_.end() || !found->is_object()) return std::nullopt;
  return *found;
}

std::vector<std::uint8_t> DeviceNotes::Eeprom() const {
  const std::string text = Text("eeprom").value_or("");
  std::vector<std::uint8_t> bytes(text.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* const digits = text.data() + 2 * i;
    if (std::from_chars(digits, digits + 2, bytes[i], 16).ptr != digits + 2) return {};
  }
  return bytes.size() == eeprom::kBytes ? bytes : std::vector<std::uint8_t>();
}

}  // namespace tool
