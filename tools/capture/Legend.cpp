#include "capture/Legend.h"

#include <fmt/core.h>

#include <cmath>

namespace tool {
namespace {

// Pixels of the font.
constexpr unsigned kMargin = 4;
constexpr unsigned kGap = 6;
constexpr unsigned kTickLength = 3;
constexpr unsigned kColoursHeight = 9;
constexpr unsigned kLine = font::kGlyphHeight + kMargin;

constexpr const char* kNotSeen = "not seen";
constexpr const char* kProfileARow = "1 profile a row";

// The scale bar is between 12 % and 30 % of the map's width, because it has a round length. That of
// a map of few columns may be wider than the map: whole pixels would falsify a shorter one.
constexpr double kMostOfWidth = 0.3;
constexpr double kShortBar = 20;

// Left out at both ends: blue and red too dark to be told from black.
constexpr double kOutermost = 0.05;

// 1, 2 or 5 x 10^exponent.
struct RoundNumber {
  double value;
  int decimals;  // behind the point, to write multiples of it
};

// The largest that is not above the limit.
RoundNumber RoundDown(double limit) {
  const int exponent = static_cast<int>(std::floor(std::log10(limit)));
  const double power = std::pow(10, exponent);
  double value = power;
  for (const double factor : {2.0, 5.0}) {
    if (factor * power <= limit) value = factor * power;
  }
  return {value, std::max(-exponent, 0)};
}

}  // namespace

Rgb HeightColour(double height, double light) {
  const double t = std::clamp(height, 0.0, 1.0) * (1 - 2 * kOutermost) + kOutermost;
  const double stops[3] = {1.5 - std::abs(4 * t - 3), 1.5 - std::abs(4 * t - 2),
                           1.5 - std::abs(4 * t - 1)};
  Rgb rgb;
  for (std::size_t i = 0; i < rgb.size(); ++i) {
    const double level = std::clamp(stops[i], 0.0, 1.0) * std::clamp(light, 0.0, 1.0);
    rgb[i] = static_cast<std::uint8_t>(std::lround(255 * level));
  }
  return rgb;
}

Legend::Legend(const Content& content, unsigned map_width)
    : content_(content), scale_(std::clamp(map_width / 240, 1u, 4u)) {
  SetBar(map_width);
  if (content_.heights) SetTicks(*content_.heights);
  const unsigned gap = kGap * scale_;
  const unsigned lines = std::max({bar_ + gap + TextWidth(bar_label_),
                                   content_.profile_a_row ? TextWidth(kProfileARow) : 0,
                                   TextWidth(Heading()) + 2 * gap + NotSeenWidth(), TicksWidth()});
  width_ = std::max(map_width, lines + 2 * kMargin * scale_);
}

unsigned Legend::height() const {
  unsigned height = kMargin + 2 * kLine;
  if (content_.profile_a_row) height += kLine;
  if (content_.heights) height += kColoursHeight + kTickLength + 1 + kLine;
  return height * scale_;
}

unsigned Legend::TextWidth(std::string_view text) const {
  return static_cast<unsigned>(text.size()) * font::kAdvance * scale_;
}

unsigned Legend::NotSeenWidth() const {
  return (font::kGlyphHeight + font::kAdvance) * scale_ + TextWidth(kNotSeen);
}

std::string_view Legend::Heading() const {
  if (!content_.heights) return "";
  return content_.millimetres ? "z in mm" : "rows";
}

void Legend::SetBar(unsigned map_width) {
  const double units = content_.units_per_pixel;
  const RoundNumber length = RoundDown(std::max(kMostOfWidth * map_width, kShortBar) * units);
  bar_ = static_cast<unsigned>(std::lround(length.value / units));
  bar_label_ = fmt::format("{:.{}f} {}", length.value, length.decimals,
                           content_.millimetres ? "mm" : "columns");
}

// Two to five.
void Legend::SetTicks(const Heights& heights) {
  const double range = heights.high - heights.low;
  const RoundNumber step = RoundDown(range / 2);
  // A row counts downwards, and its height is negative. Not -0: that is written with its sign.
  const double sign = content_.millimetres ? 1 : -1;
  for (double i = std::ceil(heights.low / step.value); i * step.value <= heights.high; ++i) {
    const double value = i == 0 ? 0 : sign * i * step.value;
    ticks_.push_back({.at = (i * step.value - heights.low) / range,
                      .label = fmt::format("{:.{}f}", value, step.decimals)});
  }
}

// So that labels stay apart, even where one is moved into the picture by half its width.
unsigned Legend::TicksWidth() const {
  if (ticks_.size() < 2) return 0;
  unsigned label = 0;
  for (const Tick& tick : ticks_) label = std::max(label, TextWidth(tick.label));
  return static_cast<unsigned>((1.5 * label + kGap * scale_) / (ticks_[1].at - ticks_[0].at));
}

void Legend::Draw(Canvas& picture, unsigned top) const {
  const unsigned left = kMargin * scale_;
  const unsigned middle = font::kGlyphHeight / 2 * scale_;
  unsigned y = top + kMargin * scale_;
  picture.Fill(left, y + middle, bar_, scale_, kBlack);
  for (const unsigned end : {left, left + bar_ - scale_}) {
    picture.Fill(end, y, scale_, font::kGlyphHeight * scale_, kBlack);
  }
  picture.Write(left + bar_ + kGap * scale_, y, scale_, bar_label_);
  y += kLine * scale_;
  if (content_.profile_a_row) {
    picture.Write(left, y, scale_, kProfileARow);
    y += kLine * scale_;
  }
  picture.Write(left, y, scale_, Heading());
  const unsigned square = font::kGlyphHeight * scale_;
  const unsigned right = width_ - left - NotSeenWidth();
  picture.Fill(right, y, square, square, kBlack);
  picture.Write(right + square + font::kAdvance * scale_, y, scale_, kNotSeen);
  if (content_.heights) DrawColours(picture, y + kLine * scale_);
}

void Legend::DrawColours(Canvas& picture, unsigned top) const {
  const unsigned left = kMargin * scale_;
  const unsigned across = width_ - 2 * left;
  for (unsigned x = 0; x < across; ++x) {
    const Rgb colour = HeightColour(x / (across - 1.0), kNormalLight);
    picture.Fill(left + x, top, 1, kColoursHeight * scale_, colour);
  }
  top += kColoursHeight * scale_;
  for (const Tick& tick : ticks_) {
    const auto x = left + static_cast<unsigned>(std::lround(tick.at * (across - scale_)));
    picture.Fill(x, top, scale_, kTickLength * scale_, kBlack);
    // Below the middle of its tick, but within the picture.
    const unsigned width = TextWidth(tick.label);
    const unsigned at = std::clamp(x, left + width / 2, width_ - left - width / 2) - width / 2;
    picture.Write(at, top + (kTickLength + 1) * scale_, scale_, tick.label);
  }
}

}  // namespace tool
