#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// What the device messages of a recording say: JSON objects that may be hostile. Later keys add to
// earlier ones or replace them.
class DeviceNotes {
 public:
  // Anything more is no note of a device.
  static constexpr std::size_t kMostBytes = 256 << 10;  // of all that holds
  static constexpr int kMostDepth = 16;

  // Throws Failure, and takes nothing, if `text` is no JSON object or breaks these limits.
  void Add(std::string_view text);

  const nlohmann::json& all() const { return all_; }
  // A key's text; none if it is missing or something else.
  std::optional<std::string> Text(const char* key) const;
  // The EEPROM's bytes, of which "eeprom" has all in hexadecimal; empty if it does not.
  std::vector<std::uint8_t> Eeprom() const;
  // A key's object; none if it is missing or something else.
  std::optional<nlohmann::json> Object(const char* key) const;

 private:
  std::size_t bytes_ = 0;  // of all_ as a text, at most
  nlohmann::json all_ = nlohmann::json::object();
};

}  // namespace tool
