#include "calibrate/CalibrationFile.h"

#include <fmt/core.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "Failure.h"
#include "InputFile.h"

namespace tool::calibrate {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;
constexpr std::size_t kLongestFile = 65536;
constexpr std::size_t kLongestModel = 32;
constexpr const char* kNext = "give a file that \"tessaline calibrate\" wrote";

// The block: four letters, version, number of bytes of the numbers, the numbers as in
// tessaline_calibration, the model, and a CRC-32 of all before it. Little-endian, as the board.
constexpr std::array<std::uint8_t, 4> kMark{'T', 'C', 'A', 'L'};
struct [[gnu::packed]] Block {
  std::array<std::uint8_t, 4> mark;
  std::uint16_t version;
  std::uint16_t number_bytes;
  tessaline_calibration numbers;
  std::array<char, kLongestModel> model;
  std::uint32_t check;
};
static_assert(sizeof(Block) <= kBlockBytes);

std::uint32_t CheckOf(const Block& block) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(&block), offsetof(Block, check)));
}

[[noreturn]] void Refuse(const std::string& path, const std::string& what) {
  throw Failure(ExitCode::kUsage, fmt::format("{}: {}", path, what), kNext);
}

template <std::size_t kCount>
void Read(const nlohmann::json& json, double (&numbers)[kCount]) {
  const auto read = json.get<std::array<double, kCount>>();
  if (json.size() != kCount) throw std::out_of_range("wrong number of numbers");
  std::copy(read.begin(), read.end(), numbers);
}

}  // namespace

Json ToJson(const StoredCalibration& stored) {
  const tessaline_calibration& c = stored.numbers;
  return {{"calibration", kVersion},
          {"model", stored.model},
          {"sensor", {{"width", c.sensor_width}, {"height", c.sensor_height}}},
          {"centre", {c.centre_column, c.centre_row}},
          {"pixels_per_unit", c.pixels_per_unit},
          {"distortion", c.distortion},
          {"plane", c.plane},
          {"sigma",
           {{"column_pixels", c.column_sigma},
            {"row_pixels", c.row_sigma},
            {"x_mm", c.x_sigma},
            {"z_mm", c.z_sigma}}}};
}

StoredCalibration ReadCalibration(const std::string& path) {
  const auto text = ReadWholeFile(path, kLongestFile, kNext);
  return ParseCalibration({text.begin(), text.end()}, path);
}

StoredCalibration ParseCalibration(const std::string& text, const std::string& path) {
  const auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object() || !json.contains("calibration")) Refuse(path, "this is no calibration");
  if (json["calibration"] != kVersion) {
    Refuse(path, fmt::format("this command knows version {} of calibrations only", kVersion));
  }
  StoredCalibration stored;
  tessaline_calibration& c = stored.numbers;
  try {
    stored.model = json.value("model", "");
    c.sensor_width = json.at("sensor").at("width").get<double>();
    c.sensor_height = json.at("sensor").at("height").get<double>();
    double centre[2];
    Read(json.at("centre"), centre);
    c.centre_column = centre[0];
    c.centre_row = centre[1];
    c.pixels_per_unit = json.at("pixels_per_unit").get<double>();
    Read(json.at("distortion"), c.distortion);
    Read(json.at("plane"), c.plane);
    const auto& sigma = json.at("sigma");
    c.column_sigma = sigma.at("column_pixels").get<double>();
    c.row_sigma = sigma.at("row_pixels").get<double>();
    c.x_sigma = sigma.at("x_mm").get<double>();
    c.z_sigma = sigma.at("z_mm").get<double>();
  } catch (const std::exception& error) {
    Refuse(path, fmt::format("this is no calibration: {}", error.what()));
  }
  if (const int result = tessaline_calibration_check(&c); result != 0) {
    Refuse(path, tessaline_profile_text(result));
  }
  return stored;
}

std::vector<std::uint8_t> ToBlock(const StoredCalibration& stored) {
  Block block{};
  block.mark = kMark;
  block.version = kVersion;
  block.number_bytes = sizeof block.numbers;
  block.numbers = stored.numbers;
  stored.model.copy(block.model.data(), block.model.size());
  block.check = CheckOf(block);
  std::vector<std::uint8_t> bytes(kBlockBytes);
  std::memcpy(bytes.data(), &block, sizeof block);
  return bytes;
}

bool IsBlock(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= sizeof(Block) && std::equal(kMark.begin(), kMark.end(), bytes.begin());
}

std::optional<StoredCalibration> FromBlock(std::span<const std::uint8_t> bytes) {
  if (!IsBlock(bytes)) return std::nullopt;
  Block block;
  std::memcpy(&block, bytes.data(), sizeof block);
  if (block.version != kVersion || block.number_bytes != sizeof block.numbers ||
      block.check != CheckOf(block)) {
    return std::nullopt;
  }
  StoredCalibration stored{block.numbers, {}};
  stored.model.assign(block.model.data(), strnlen(block.model.data(), block.model.size()));
  if (tessaline_calibration_check(&stored.numbers) != 0) return std::nullopt;
  return stored;
}

}  // namespace tool::calibrate
