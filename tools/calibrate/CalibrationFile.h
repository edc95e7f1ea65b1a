#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "tessaline/profile.h"

namespace tool::calibrate {

inline constexpr double kMicrometres = 1000;  // in a millimetre

// A calibration as it is kept: in a file, and in the EEPROM of the head it belongs to.
struct StoredCalibration {
  tessaline_calibration numbers{};
  std::string model;  // code of the product it was made with
};

nlohmann::ordered_json ToJson(const StoredCalibration& stored);
// Throws a Failure if the file cannot be read or holds no possible calibration.
StoredCalibration ReadCalibration(const std::string& path);
// The same of a file's content; `path` is for people.
StoredCalibration ParseCalibration(const std::string& text, const std::string& path);

// Where the block lies in the EEPROM's 512 bytes: the second half.
inline constexpr std::size_t kBlockAt = 256;
inline constexpr std::size_t kBlockBytes = 256;

std::vector<std::uint8_t> ToBlock(const StoredCalibration& stored);

// What lies in the place of a block.
struct FoundBlock {
  enum class State {
    kNone,     // something else
    kSound,    // a calibration
    kDamaged,  // bits of it are wrong, perhaps even those by which it is known
    kNewer,    // whole, but of a version that this command does not know
  };
  State state = State::kNone;
  std::uint16_t version = 0;
  StoredCalibration stored;  // if it is sound
};
FoundBlock FromBlock(std::span<const std::uint8_t> bytes);

// What is wrong with a block that is not sound: "the calibration in the EEPROM is damaged".
std::string Complaint(const FoundBlock& found);

}  // namespace tool::calibrate
