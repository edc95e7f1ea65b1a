#include "capture/HeightMapWriter.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "Failure.h"
#include "capture/Picture.h"

namespace tool {
namespace {

constexpr unsigned kMostPixelsAcross = 1024;
constexpr unsigned kMostRows = 20000;

// The same number of columns for every pixel: anything else shows as stripes.
unsigned PixelsAcross(unsigned columns) {
  const unsigned columns_per_pixel = (columns + kMostPixelsAcross - 1) / kMostPixelsAcross;
  return std::max(columns / std::max(columns_per_pixel, 1u), 1u);
}

constexpr std::uint8_t kBright = 255;  // of a line whose brightness nobody knows
constexpr float kNoHeight = std::numeric_limits<float>::quiet_NaN();

}  // namespace

HeightMapWriter::HeightMapWriter(const WriterSettings& settings)
    : settings_(settings),
      file_(settings.path, settings.force),
      width_(PixelsAcross(settings.width)) {}

void HeightMapWriter::Write(const Frame& frame) {
  if (profiles_.size() == kMostProfiles) {
    throw Failure(ExitCode::kFile,
                  fmt::format("a height map holds at most {} profiles", kMostProfiles),
                  "capture less at a time, or write .npy");
  }
  Profile profile{frame.encoder_stamp, std::vector<float>(width_, kNoHeight),
                  std::vector<std::uint8_t>(width_)};
  for (const Point& point : frame.points) {
    const std::size_t column = point.column - settings_.measuring.geometry.first_column;
    if (column >= settings_.width) continue;
    const std::size_t x = std::min(column * width_ / settings_.width, std::size_t{width_} - 1);
    profile.heights[x] = settings_.measuring.calibrated() ? point.z : -point.row;
    profile.peaks[x] = settings_.rows_only ? kBright : point.peak;
  }
  profiles_.push_back(std::move(profile));
}

// Without the outermost thousandths: a single stray point would use up the colours.
std::optional<Legend::Heights> HeightMapWriter::Range() const {
  std::vector<float> heights;
  // A fourth of them tells it, unless all that was seen is between them.
  for (const std::size_t step : {4, 1}) {
    if (!heights.empty()) break;
    for (const Profile& profile : profiles_) {
      for (std::size_t x = 0; x < profile.heights.size(); x += step) {
        if (!std::isnan(profile.heights[x])) heights.push_back(profile.heights[x]);
      }
    }
  }
  if (heights.empty()) return std::nullopt;
  std::sort(heights.begin(), heights.end());
  const double low = heights[heights.size() / 1000];
  const double high = heights[heights.size() - 1 - heights.size() / 1000];
  return Legend::Heights{low, std::max(high, low + 1e-3)};
}

double HeightMapWriter::UnitsPerPixel() const {
  return settings_.measuring.MmPerColumn(settings_.width, settings_.height) * settings_.width /
         width_;
}

// The same millimetres per pixel down as across. If the belt stands still or the encoder counts
// backwards, one row per profile.
HeightMapWriter::Rows HeightMapWriter::PlaceProfiles() const {
  const Measuring& measuring = settings_.measuring;
  const std::uint64_t start = profiles_.front().encoder_stamp;
  const double mm_per_pixel = UnitsPerPixel();
  const auto pixels_moved = [&](const Profile& profile) {
    const auto counts = static_cast<std::int64_t>(profile.encoder_stamp - start);
    return measuring.Y(static_cast<double>(counts)) / mm_per_pixel;
  };
  const double travel = pixels_moved(profiles_.back());
  Rows rows{.first = {}, .to_scale = measuring.travels() && travel >= 1 && travel < kMostRows};
  for (const Profile& profile : profiles_) {
    rows.first.push_back(rows.to_scale
                             ? static_cast<unsigned>(std::clamp(pixels_moved(profile), 0.0, travel))
                             : static_cast<unsigned>(rows.first.size()));
  }
  return rows;
}

void HeightMapWriter::DrawMap(Canvas& picture, const Rows& rows,
                              const Legend::Heights& range) const {
  const unsigned height = rows.first.back() + 1;
  const double span = range.high - range.low;
  for (std::size_t i = 0; i < profiles_.size(); ++i) {
    const Profile& profile = profiles_[i];
    const Profile& before = profiles_[i == 0 ? 0 : i - 1];
    const unsigned top = rows.first[i];
    const unsigned next = i + 1 < profiles_.size() ? rows.first[i + 1] : height;
    const unsigned end = std::min(std::max(next, top + 1), height);
    for (unsigned x = 0; x < width_; ++x) {
      const double z = profile.heights[x];
      if (std::isnan(z)) continue;
      const auto slope_to = [z](double other) { return std::isnan(other) ? 0.0 : other - z; };
      const double slope =
          (slope_to(profile.heights[std::min(x + 1, width_ - 1)]) - slope_to(before.heights[x])) *
          12 / span;
      // Never so dark that shade looks like what was not seen, which is black.
      const double light =
          kNormalLight - 0.3 * (1 - profile.peaks[x] / 255.0) + std::clamp(slope, -0.2, 0.4);
      picture.Fill(x, top, 1, end - top, HeightColour((z - range.low) / span, light));
    }
  }
}

void HeightMapWriter::Finish() {
  if (profiles_.empty()) return;
  const Rows rows = PlaceProfiles();
  const auto range = Range();
  const Legend legend({.millimetres = settings_.measuring.calibrated(),
                       .units_per_pixel = UnitsPerPixel(),
                       .profile_a_row = !rows.to_scale,
                       .heights = range},
                      width_);
  const unsigned height = rows.first.back() + 1;
  Canvas picture(legend.width(), height + legend.height());
  picture.Fill(0, 0, width_, height, kBlack);
  if (range) DrawMap(picture, rows, *range);
  legend.Draw(picture, height);
  file_.Write(EncodePng(picture.width(), picture.height(), 3, picture.pixels()));
  frames_ = profiles_.size();
}

}  // namespace tool
