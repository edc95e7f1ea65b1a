#include "capture/HeightMapWriter.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
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
constexpr float kUnknown = std::numeric_limits<float>::quiet_NaN();

// Blue (0) over green and yellow to red (1).
std::array<std::uint8_t, 3> Colour(double t, double brightness) {
  const double stops[3] = {1.5 - std::abs(4 * t - 3), 1.5 - std::abs(4 * t - 2),
                           1.5 - std::abs(4 * t - 1)};
  std::array<std::uint8_t, 3> rgb;
  for (std::size_t i = 0; i < rgb.size(); ++i) {
    const double level = std::clamp(stops[i], 0.0, 1.0) * std::clamp(brightness, 0.0, 1.0);
    rgb[i] = static_cast<std::uint8_t>(std::lround(255 * level));
  }
  return rgb;
}

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
  Profile profile{frame.encoder_stamp, std::vector<float>(width_, kUnknown),
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
std::pair<double, double> HeightMapWriter::Range() const {
  std::vector<float> heights;
  for (const Profile& profile : profiles_) {
    for (std::size_t x = 0; x < profile.heights.size(); x += 4) {
      if (!std::isnan(profile.heights[x])) heights.push_back(profile.heights[x]);
    }
  }
  if (heights.empty()) return {0, 1};
  std::sort(heights.begin(), heights.end());
  const double low = heights[heights.size() / 1000];
  const double high = heights[heights.size() - 1 - heights.size() / 1000];
  return {low, std::max(high, low + 1e-3)};
}

std::vector<std::uint8_t> HeightMapWriter::Draw(unsigned& height) const {
  const Measuring& measuring = settings_.measuring;
  const std::uint64_t start = profiles_.front().encoder_stamp;
  // The same millimetres per pixel down as across. If the belt stands still or the encoder
  // counts backwards, one row per profile.
  const double mm_per_pixel =
      measuring.MmPerColumn(settings_.width, settings_.height) * settings_.width / width_;
  const auto counts = static_cast<std::int64_t>(profiles_.back().encoder_stamp - start);
  const double travel = measuring.Y(static_cast<double>(counts)) / mm_per_pixel;
  const bool by_encoder = measuring.travels() && travel >= 1 && travel < kMostRows;
  const auto row_of = [&](std::size_t i) {
    if (!by_encoder) return static_cast<unsigned>(i);
    const auto moved = static_cast<std::int64_t>(profiles_[i].encoder_stamp - start);
    return static_cast<unsigned>(
        std::clamp(measuring.Y(static_cast<double>(moved)) / mm_per_pixel, 0.0, travel));
  };

  height = row_of(profiles_.size() - 1) + 1;
  std::vector<std::uint8_t> picture(std::size_t{width_} * height * 3);
  const auto [low, high] = Range();
  for (std::size_t i = 0; i < profiles_.size(); ++i) {
    const Profile& profile = profiles_[i];
    const Profile& before = profiles_[i == 0 ? 0 : i - 1];
    const unsigned end = std::max(i + 1 < profiles_.size() ? row_of(i + 1) : height, row_of(i) + 1);
    for (unsigned x = 0; x < width_; ++x) {
      const double z = profile.heights[x];
      if (std::isnan(z)) continue;
      const auto slope_to = [z](double other) { return std::isnan(other) ? 0.0 : other - z; };
      const double slope =
          (slope_to(profile.heights[std::min(x + 1, width_ - 1)]) - slope_to(before.heights[x])) *
          12 / (high - low);
      // Never so dark that shade looks like what was not seen, which is black.
      const double light = 0.6 + 0.3 * profile.peaks[x] / 255 + std::clamp(slope, -0.2, 0.4);
      const auto rgb = Colour(std::clamp((z - low) / (high - low), 0.0, 1.0) * 0.9 + 0.05, light);
      for (unsigned y = row_of(i); y < std::min(end, height); ++y) {
        std::copy(rgb.begin(), rgb.end(), &picture[(std::size_t{y} * width_ + x) * 3]);
      }
    }
  }
  return picture;
}

void HeightMapWriter::Finish() {
  if (profiles_.empty()) return;
  unsigned height = 0;
  const auto picture = Draw(height);
  file_.Write(EncodePng(width_, height, 3, picture));
  frames_ = profiles_.size();
}

}  // namespace tool
