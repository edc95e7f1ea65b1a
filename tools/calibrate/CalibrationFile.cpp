#include "calibrate/CalibrationFile.h"

#include <fmt/core.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "Failure.h"
#include "InputFile.h"
#include "calibrate/Field.h"

namespace tool::calibrate {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kFileVersion = 1;
constexpr std::size_t kLongestFile = 65536;
constexpr std::size_t kLongestModel = 32;
constexpr const char* kNext = "give a file that \"tessaline calibrate\" wrote";

// The block, little-endian as the board: a head; the numbers of tessaline_calibration in its order,
// the model, and from version 2 on the field. A CRC-32 of all before it ends the block.
constexpr std::array<std::uint8_t, 4> kMark{'T', 'C', 'A', 'L'};
struct [[gnu::packed]] BlockHead {
  std::array<std::uint8_t, 4> mark;
  std::uint16_t version;
  // Of the whole block with its check, so that any later version can be checked. In version 1: of
  // the numbers.
  std::uint16_t bytes;
};
struct [[gnu::packed]] Content {
  std::array<double, 21> numbers;
  std::array<char, kLongestModel> model;
};
struct [[gnu::packed]] FieldContent {
  std::uint16_t corners;
  std::array<std::uint16_t, 2 * TESSALINE_FIELD_CORNERS> places;  // column, row
};
static_assert(offsetof(tessaline_calibration, field_corners) == sizeof Content::numbers);

using Check = std::uint32_t;
constexpr std::uint16_t kWithoutField = 1;
constexpr std::uint16_t kVersion = 2;
constexpr std::size_t kBytesWithoutField = sizeof(BlockHead) + sizeof(Content) + sizeof(Check);
constexpr std::size_t kBytes = kBytesWithoutField + sizeof(FieldContent);
static_assert(kBytes <= kBlockBytes);

Check CheckOf(std::span<const std::uint8_t> bytes) {
  return static_cast<Check>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

template <typename Record>
Record Take(std::span<const std::uint8_t> bytes, std::size_t at) {
  Record record;
  std::memcpy(&record, bytes.data() + at, sizeof record);
  return record;
}

template <typename Record>
void Append(std::vector<std::uint8_t>& bytes, const Record& record) {
  const auto* begin = reinterpret_cast<const std::uint8_t*>(&record);
  bytes.insert(bytes.end(), begin, begin + sizeof record);
}

// Whether a block of so many bytes would be whole with this head.
bool IsWhole(std::span<const std::uint8_t> bytes, const BlockHead& head, std::size_t size) {
  if (size < sizeof head + sizeof(Check) || size > bytes.size()) return false;
  std::vector<std::uint8_t> block;
  Append(block, head);
  const std::size_t end = size - sizeof(Check);
  block.insert(block.end(), bytes.begin() + sizeof head, bytes.begin() + static_cast<int>(end));
  return Take<Check>(bytes, end) == CheckOf(block);
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

// Files of before have none.
void ReadField(const nlohmann::json& json, tessaline_calibration& c) {
  if (!json.contains("field") || json["field"].is_null()) return;
  for (const auto& corner : json["field"]) {
    if (c.field_corners == TESSALINE_FIELD_CORNERS) throw std::out_of_range("too many corners");
    double place[2];
    Read(corner, place);
    const auto pixel = [](double number) {
      if (!(number >= 0 && number <= UINT16_MAX)) throw std::out_of_range("no pixel");
      return static_cast<std::uint16_t>(std::lround(number));
    };
    c.field[c.field_corners++] = {pixel(place[0]), pixel(place[1])};
  }
}

}  // namespace

Json ToJson(const StoredCalibration& stored) {
  const tessaline_calibration& c = stored.numbers;
  return {{"calibration", kFileVersion},
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
            {"z_mm", c.z_sigma}}},
          {"field", FieldCorners(c)}};
}

StoredCalibration ReadCalibration(const std::string& path) {
  const auto text = ReadWholeFile(path, kLongestFile, kNext);
  return ParseCalibration({text.begin(), text.end()}, path);
}

StoredCalibration ParseCalibration(const std::string& text, const std::string& path) {
  const auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object() || !json.contains("calibration")) Refuse(path, "this is no calibration");
  if (json["calibration"] != kFileVersion) {
    Refuse(path, fmt::format("this command knows version {} of calibrations only", kFileVersion));
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
    ReadField(json, c);
  } catch (const std::exception& error) {
    Refuse(path, fmt::format("this is no calibration: {}", error.what()));
  }
  if (const int result = tessaline_calibration_check(&c); result != 0) {
    Refuse(path, tessaline_profile_text(result));
  }
  return stored;
}

std::vector<std::uint8_t> ToBlock(const StoredCalibration& stored) {
  Content content{};
  std::memcpy(&content.numbers, &stored.numbers, sizeof content.numbers);
  stored.model.copy(content.model.data(), content.model.size());
  FieldContent field{};
  field.corners = static_cast<std::uint16_t>(stored.numbers.field_corners);
  std::memcpy(&field.places, stored.numbers.field, sizeof field.places);
  std::vector<std::uint8_t> bytes;
  Append(bytes, BlockHead{kMark, kVersion, kBytes});
  Append(bytes, content);
  Append(bytes, field);
  Append(bytes, CheckOf(bytes));
  bytes.resize(kBlockBytes);
  return bytes;
}

FoundBlock FromBlock(std::span<const std::uint8_t> bytes) {
  using State = FoundBlock::State;
  FoundBlock found;
  if (bytes.size() < kBytes) return found;
  const auto head = Take<BlockHead>(bytes, 0);
  const BlockHead old_head{kMark, kWithoutField, sizeof Content::numbers};
  const BlockHead new_head{kMark, kVersion, kBytes};
  const bool is_old = IsWhole(bytes, old_head, kBytesWithoutField);
  const bool is_known = is_old || IsWhole(bytes, new_head, kBytes);
  const bool is_whole = IsWhole(bytes, {kMark, head.version, head.bytes}, head.bytes);
  found.version = head.version;
  if (head.mark != kMark && !is_known && !is_whole) return found;
  const bool is_newer = head.mark == kMark && head.version > kVersion && is_whole;
  found.state = is_newer ? State::kNewer : State::kDamaged;
  const BlockHead& right_head = is_old ? old_head : new_head;
  if (!is_known || std::memcmp(&head, &right_head, sizeof head) != 0) return found;

  const auto content = Take<Content>(bytes, sizeof head);
  tessaline_calibration& numbers = found.stored.numbers;
  std::memcpy(&numbers, &content.numbers, sizeof content.numbers);
  found.stored.model.assign(content.model.data(),
                            strnlen(content.model.data(), content.model.size()));
  if (!is_old) {
    const auto field = Take<FieldContent>(bytes, sizeof head + sizeof content);
    numbers.field_corners = field.corners;
    std::memcpy(numbers.field, &field.places, sizeof field.places);
  }
  if (tessaline_calibration_check(&numbers) == 0) found.state = State::kSound;
  return found;
}

std::string Complaint(const FoundBlock& found) {
  switch (found.state) {
    case FoundBlock::State::kNone:
      return "there is no calibration in the EEPROM";
    case FoundBlock::State::kNewer:
      return fmt::format(
          "the calibration in the EEPROM is of a newer version, {}; this command knows 1 and {}",
          found.version, kVersion);
    default:
      return "the calibration in the EEPROM is damaged";
  }
}

}  // namespace tool::calibrate
