#include "serve/Snapshot.h"

#include <fmt/format.h>

#include <algorithm>

#include "capture/Canvas.h"
#include "capture/CsvText.h"
#include "capture/Picture.h"

namespace tool::serve {
namespace {

constexpr unsigned kWidth = 1024;
constexpr unsigned kHeight = 640;
constexpr unsigned kMargin = 40;
constexpr unsigned kLetters = 2;
constexpr Rgb kCurve{200, 30, 30};
constexpr Rgb kFrame{160, 160, 160};

std::string Text(const std::vector<std::uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

// Where a value lies between two others, in pixels of an axis.
unsigned Place(double value, double low, double high, unsigned pixels) {
  if (high <= low) return pixels / 2;
  const double part = std::clamp((value - low) / (high - low), 0.0, 1.0);
  return static_cast<unsigned>(part * (pixels - 1));
}

Canvas Draw(const PictureMaker::Newest& newest) {
  const bool mm = newest.view.measuring.calibrated();
  const auto across = [mm](const Point& p) { return mm ? p.x : static_cast<float>(p.column); };
  const auto up = [mm](const Point& p) { return mm ? p.z : -p.row; };
  Canvas canvas(kWidth, kHeight);
  canvas.Fill(kMargin, kMargin, kWidth - 2 * kMargin, kHeight - 2 * kMargin, kFrame);
  canvas.Fill(kMargin + 1, kMargin + 1, kWidth - 2 * kMargin - 2, kHeight - 2 * kMargin - 2,
              kWhite);
  const auto& points = newest.frame.points;
  const std::string title = fmt::format("frame {}: {} points", newest.frame.id, points.size());
  canvas.Write(kMargin, kMargin / 4, kLetters, title);
  if (points.empty()) return canvas;
  const auto [left, right] = std::ranges::minmax(points, {}, across);
  const auto [low, high] = std::ranges::minmax(points, {}, up);
  for (const Point& point : points) {
    const unsigned x =
        kMargin + Place(across(point), across(left), across(right), kWidth - 2 * kMargin);
    const unsigned y =
        kHeight - kMargin - 1 - Place(up(point), up(low), up(high), kHeight - 2 * kMargin);
    canvas.Fill(x, y, 2, 2, kCurve);
  }
  canvas.Write(kMargin, kHeight - kMargin + kMargin / 4, kLetters,
               mm ? fmt::format("x {:.2f} to {:.2f} mm, z {:.2f} to {:.2f} mm", across(left),
                                across(right), up(low), up(high))
                  : fmt::format("columns {} to {}, rows {:.1f} to {:.1f}", across(left),
                                across(right), -up(high), -up(low)));
  return canvas;
}

}  // namespace

std::string SnapshotPng(const PictureMaker::Newest& newest) {
  if (!newest.image.empty()) {
    return Text(EncodePng(newest.frame.width, newest.frame.height, 1, newest.image));
  }
  const Canvas canvas = Draw(newest);
  return Text(EncodePng(canvas.width(), canvas.height(), 3, canvas.pixels()));
}

std::string SnapshotCsv(const PictureMaker::Newest& newest) {
  const CsvText text(newest.view.measuring, !newest.view.sends_peaks);
  return text.Head() + text.Lines(newest.frame);
}

}  // namespace tool::serve
