#include "calibrate/View.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <set>
#include <string_view>

#include "Failure.h"
#include "InputFile.h"

namespace tool::calibrate {
namespace {

// The columns of the file.
constexpr std::string_view kHead = "frame_id,time_stamp,encoder_stamp,column,row";
constexpr std::size_t kFields = 5;
constexpr std::size_t kId = 0;
constexpr std::size_t kColumn = 3;
constexpr std::size_t kRow = 4;
constexpr std::string_view kSensor = "sensor";

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // spreadsheets write it
constexpr const char* kNext = "a view is a csv file of \"tessaline capture strips\"";

// Sum and scatter of the rows of one column.
struct Rows {
  double count = 0;
  double mean = 0;
  double squares = 0;  // of the distances from the mean

  void Add(double row) {
    count += 1;
    const double before = row - mean;
    mean += before / count;
    squares += before * (row - mean);
  }
};

bool ReadNumber(std::string_view text, double& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
}

// Takes the first field off a line.
std::string_view TakeField(std::string_view& line) {
  const std::size_t end = std::min(line.find(','), line.size());
  const std::string_view field = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return field;
}

bool TakeNumbers(std::string_view& line, std::array<double, kFields>& numbers) {
  return std::ranges::all_of(numbers,
                             [&](double& number) { return ReadNumber(TakeField(line), number); });
}

// The fields of the head before that which names the sensor; none if there is no such field.
std::optional<std::size_t> PlaceOfSensor(std::string_view head) {
  for (std::size_t n = 0; !head.empty(); ++n) {
    if (TakeField(head) == kSensor) return n;
  }
  return std::nullopt;
}

}  // namespace

View ReadView(const std::string& path, unsigned sensor_width, unsigned sensor_height) {
  std::ifstream file = OpenToRead(path, kNext);
  const auto refuse = [&path](const std::string& what, const char* next = kNext) {
    throw Failure(ExitCode::kUsage, fmt::format("{}: {}", path, what), next);
  };
  // No line of such a file is longer.
  std::array<char, 512> buffer{};
  std::string_view text;
  std::size_t line = 1;
  const auto next_line = [&] {
    if (!file.getline(buffer.data(), buffer.size())) return false;
    text = buffer.data();
    if (text.ends_with('\r')) text.remove_suffix(1);
    return true;
  };
  next_line();
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  if (!text.starts_with(kHead)) refuse("the first line does not name the columns");
  const std::optional<std::size_t> sensor_at = PlaceOfSensor(text);
  const std::string sensor = fmt::format("{}x{}", sensor_width, sensor_height);

  std::vector<Rows> columns(sensor_width);
  std::set<double> ids;
  std::size_t blank = 0;  // line
  for (++line; next_line(); ++line) {
    if (text.empty()) {
      blank = line;
      continue;
    }
    // Only the end may be blank.
    if (blank != 0) refuse(fmt::format("line {} is not a point", blank));
    std::array<double, kFields> numbers{};
    if (!TakeNumbers(text, numbers)) refuse(fmt::format("line {} is not a point", line));
    if (sensor_at) {
      for (std::size_t n = kFields; n < *sensor_at; ++n) TakeField(text);
      const std::string_view own = TakeField(text);
      if (own.empty() || own.find_first_not_of("0123456789x") != std::string_view::npos) {
        refuse(fmt::format("line {} does not tell its sensor", line));
      }
      if (own != sensor) {
        refuse(fmt::format("line {} is of a sensor of {}, not of {}", line, own, sensor),
               "give views of this head, and its --model");
      }
    }
    const double column = numbers[kColumn];
    if (column < 0 || column >= sensor_width || column != std::floor(column) || numbers[kRow] < 0 ||
        numbers[kRow] >= sensor_height) {
      refuse(
          fmt::format("line {} is not on a sensor of {} x {}", line, sensor_width, sensor_height));
    }
    columns[static_cast<std::size_t>(column)].Add(numbers[kRow]);
    ids.insert(numbers[kId]);
  }
  if (!file.eof()) refuse(fmt::format("line {} is not a point", line));

  View view{.name = path, .samples = {}, .profiles = static_cast<double>(ids.size())};
  double squares = 0;
  double freedoms = 0;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const Rows& rows = columns[i];
    // A column that rarely has a line shows a stray reflection.
    if (rows.count == 0 || rows.count < view.profiles / 2) continue;
    view.samples.push_back({static_cast<double>(i), rows.mean});
    squares += rows.squares;
    freedoms += rows.count - 1;
  }
  if (freedoms > 0) view.scatter = std::sqrt(squares / freedoms);
  return view;
}

}  // namespace tool::calibrate
