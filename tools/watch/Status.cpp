#include "watch/Status.h"

#include <cmath>

#include "Temperature.h"
#include "capture/FrameQueue.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"
#include "watch/Plot.h"

namespace tool {
namespace {

struct Range {
  double low = NAN;
  double high = NAN;
};

Json ToJson(const Range& range) {
  return std::isnan(range.low) ? Json() : Json{range.low, range.high};
}

// From the lowest to the highest of a quantity of the points. Not with fmin and fmax: g++ 12 for
// 64-bit Arm cannot compile that loop.
template <typename Number>
Range RangeOf(const std::vector<Point>& points, Number Point::*number) {
  Range range;
  for (const Point& point : points) {
    const double value = point.*number;
    if (std::isnan(range.low) || value < range.low) range.low = value;
    if (std::isnan(range.high) || value > range.high) range.high = value;
  }
  return range;
}

// Where the points lie, across and in height.
std::string Extent(const Status& status) {
  const auto& points = status.points;
  if (points.empty()) return "no line";
  if (!status.measuring.calibrated()) {
    const Range columns = RangeOf(points, &Point::column);
    const Range rows = RangeOf(points, &Point::row);
    return fmt::format("columns {} to {}, rows {:.1f} to {:.1f}", columns.low, columns.high,
                       rows.low, rows.high);
  }
  const Range x = RangeOf(points, &Point::x);
  const Range z = RangeOf(points, &Point::z);
  return fmt::format("x {:.3f} to {:.3f} mm, z {:.3f} to {:.3f} mm", x.low, x.high, z.low, z.high);
}

}  // namespace

void Status::LookUp(const Session& session) {
  dropped = FrameQueue::Instance().Dropped();
  if (const auto* const sensor = session.live()) {
    const Json state = sensor->Get("/api/v1/state");
    const Json& counters = state["counters"];
    missing = counters["missing_ids"];
    malformed = counters["malformed"];
    fpga_lost = counters["fpga_lost"];
    triggers_lost = counters["triggers_lost"];
    if (state["temperatures"].contains("processor")) {
      temperature = state["temperatures"]["processor"];
    }
    width = state["region"]["width"];
    height = state["region"]["height"];
    return;
  }
  tessaline_capture_statistics statistics{};
  TessalineGetCaptureStatistics(TESSALINE_STREAM_STRIPS, &statistics);
  missing = statistics.ids_missing;
  malformed = statistics.malformed;
  fpga_lost = GetCallbackLostNum();
  triggers_lost = GetXtrigLostSta();
  temperature = ProcessorTemperature(session.model().family());
  width = GetImageWidth();
  height = GetImageHeight();
}

std::string Status::AsLine() const {
  return fmt::format(
      "{:7.1f} s  {:8} profiles  {:8.1f}/s  id {:8}  {:5} points  {}  missing {}  "
      "malformed {}  lost {}  {}",
      seconds, profiles, rate, last_id, points.size(), Extent(*this), missing, malformed,
      fpga_lost + triggers_lost + dropped,
      temperature ? fmt::format("{:.1f} C", *temperature) : "no temperature");
}

std::string Status::AsPicture(std::string_view title, unsigned columns, unsigned rows) const {
  const auto cut = [&](std::string line) {
    if (line.size() > columns) line.resize(columns);
    return line + '\n';
  };
  std::string picture =
      cut(fmt::format("{}   {:.1f} profiles/s   id {}   encoder {}   CPU {}", title, rate, last_id,
                      encoder, temperature ? fmt::format("{:.1f} C", *temperature) : "?"));
  picture +=
      cut(points.empty() ? "no line in this profile: is the laser on, is the exposure long enough?"
                         : fmt::format("{} points: {}", points.size(), Extent(*this)));
  constexpr unsigned kTextLines = 4;
  if (rows > kTextLines) {
    const tessaline_geometry& place = measuring.geometry;
    const Region frame{place.first_column, place.first_row, width, height};
    for (const auto& line : PlotProfile(points, frame, columns, rows - kTextLines)) {
      picture += line + '\n';
    }
  }
  picture +=
      cut(fmt::format("missing ids {}   malformed {}   lost by the FPGA {}   lost triggers {}",
                      missing, malformed, fpga_lost, triggers_lost));
  picture += cut(fmt::format("{} profiles in {:.0f} s   q ends   {}", profiles, seconds,
                             measuring.Description()));
  picture.pop_back();
  return picture;
}

Json Status::AsJson() const {
  Json json{{"seconds", seconds},
            {"profiles", profiles},
            {"rate", rate},
            {"last_id", last_id},
            {"encoder", encoder},
            {"points", points.size()},
            {"missing_ids", missing},
            {"malformed", malformed},
            {"fpga_lost", fpga_lost},
            {"triggers_lost", triggers_lost},
            {"dropped", dropped},
            {"processor_temperature", temperature ? Json(*temperature) : Json(nullptr)},
            {"unit", measuring.Unit()},
            {"calibration", measuring.calibrated() ? Json(measuring.source) : Json()}};
  if (measuring.calibrated()) {
    json["x"] = ToJson(RangeOf(points, &Point::x));
    json["z"] = ToJson(RangeOf(points, &Point::z));
  } else {
    json["columns"] = ToJson(RangeOf(points, &Point::column));
    json["rows"] = ToJson(RangeOf(points, &Point::row));
  }
  return json;
}

}  // namespace tool
