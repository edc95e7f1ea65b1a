#include "watch/Status.h"

#include <algorithm>

#include "Temperature.h"
#include "capture/FrameQueue.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"
#include "watch/Plot.h"

namespace tool {

void Status::LookUp(const Family& family) {
  tessaline_capture_statistics statistics{};
  TessalineGetCaptureStatistics(TESSALINE_STREAM_STRIPS, &statistics);
  missing = statistics.ids_missing;
  malformed = statistics.malformed;
  dropped = FrameQueue::Instance().Dropped();
  fpga_lost = GetCallbackLostNum();
  triggers_lost = GetXtrigLostSta();
  temperature = ProcessorTemperature(family);
  width = GetImageWidth();
  height = GetImageHeight();
}

std::string Status::AsLine() const {
  return fmt::format(
      "{:7.1f} s  {:8} profiles  {:8.1f}/s  id {:8}  {:5} points  missing {}  "
      "malformed {}  lost {}  {}",
      seconds, profiles, rate, last_id, points.size(), missing, malformed,
      fpga_lost + triggers_lost + dropped,
      temperature ? fmt::format("{:.1f} C", *temperature) : "no temperature");
}

std::string Status::AsPicture(std::string_view title, unsigned columns, unsigned rows) const {
  const auto cut = [&](std::string line) {
    if (line.size() > columns) line.resize(columns);
    return line + '\n';
  };
  double top = height;
  double bottom = 0;
  for (const Point& point : points) {
    top = std::min<double>(top, point.row);
    bottom = std::max<double>(bottom, point.row);
  }
  std::string picture =
      cut(fmt::format("{}   {:.1f} profiles/s   id {}   encoder {}   CPU {}", title, rate, last_id,
                      encoder, temperature ? fmt::format("{:.1f} C", *temperature) : "?"));
  picture +=
      cut(points.empty() ? "no line in this profile: is the laser on, is the exposure long enough?"
                         : fmt::format("{} points, rows {:.1f} to {:.1f} of {} x {} pixels",
                                       points.size(), top, bottom, width, height));
  constexpr unsigned kTextLines = 4;
  if (rows > kTextLines) {
    for (const auto& line : PlotProfile(points, width, height, columns, rows - kTextLines)) {
      picture += line + '\n';
    }
  }
  picture +=
      cut(fmt::format("missing ids {}   malformed {}   lost by the FPGA {}   lost triggers {}",
                      missing, malformed, fpga_lost, triggers_lost));
  picture += cut(fmt::format("{} profiles in {:.0f} s   q ends", profiles, seconds));
  picture.pop_back();
  return picture;
}

Json Status::AsJson() const {
  return {{"seconds", seconds},
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
          {"processor_temperature", temperature ? Json(*temperature) : Json(nullptr)}};
}

}  // namespace tool
