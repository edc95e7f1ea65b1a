#include "calibrate/View.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <string_view>

#include "Failure.h"

namespace tool::calibrate {
namespace {

// The columns of the file.
constexpr std::string_view kHead = "frame_id,time_stamp,encoder_stamp,column,row";
constexpr std::size_t kFields = 5;
constexpr std::size_t kColumn = 3;
constexpr std::size_t kRow = 4;

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

bool ReadFields(std::string_view line, std::array<double, kFields>& fields) {
  for (double& field : fields) {
    const std::size_t end = std::min(line.find(','), line.size());
    if (!ReadNumber(line.substr(0, end), field)) return false;
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  return true;
}

}  // namespace

View ReadView(const std::string& path, unsigned sensor_width, unsigned sensor_height) {
  std::ifstream file(path);
  if (!file) {
    throw Failure(ExitCode::kFile, fmt::format("cannot read {}: {}", path, strerror(errno)));
  }
  const auto refuse = [&path](const std::string& what) {
    throw Failure(ExitCode::kUsage, fmt::format("{}: {}", path, what),
                  "a view is a csv file of \"tessaline capture strips\"");
  };
  // No line of such a file is longer.
  std::array<char, 512> buffer{};
  std::string_view text;
  const auto next_line = [&] {
    if (!file.getline(buffer.data(), buffer.size())) return false;
    text = buffer.data();
    if (text.ends_with('\r')) text.remove_suffix(1);
    return true;
  };
  if (!next_line() || !text.starts_with(kHead)) {
    refuse("the first line does not name the columns");
  }

  std::vector<Rows> columns(sensor_width);
  double last_id = -1;
  View view{.name = path, .samples = {}, .profiles = 0};
  std::size_t line = 2;
  for (; next_line(); ++line) {
    std::array<double, kFields> fields{};
    if (!ReadFields(text, fields)) refuse(fmt::format("line {} is not a point", line));
    const double column = fields[kColumn];
    if (column < 0 || column >= sensor_width || column != std::floor(column) || fields[kRow] < 0 ||
        fields[kRow] >= sensor_height) {
      refuse(
          fmt::format("line {} is not on a sensor of {} x {}", line, sensor_width, sensor_height));
    }
    columns[static_cast<std::size_t>(column)].Add(fields[kRow]);
    if (fields[0] != last_id) ++view.profiles;
    last_id = fields[0];
  }

  if (!file.eof()) refuse(fmt::format("line {} is not a point", line));

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
