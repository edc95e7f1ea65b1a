// The strip below a height map, read as people do: texts, the scale bar, the colours.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "PngFile.h"
#include "ToolRun.h"
#include "capture/Font.h"

namespace tessaline_test {
namespace {

namespace font = tool::font;

using Rgb = std::array<int, 3>;
constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb kWhite{255, 255, 255};

// White beyond the edges.
Rgb At(const Picture& picture, int x, int y) {
  if (x < 0 || x >= static_cast<int>(picture.width)) return kWhite;
  const std::uint8_t* rgb = &picture.pixels[(std::size_t{picture.width} * static_cast<unsigned>(y) +
                                             static_cast<unsigned>(x)) *
                                            3];
  return {rgb[0], rgb[1], rgb[2]};
}

Picture Captured(const std::string& arguments) {
  const Directory directory;
  const std::string file = directory / "map.png";
  const ToolResult result = RunTool("capture strips -o " + file + " " + arguments);
  EXPECT_EQ(result.status, 0) << result.err;
  return ReadPng(file, PNG_FORMAT_RGB);
}

bool StandsAt(const Picture& picture, const std::string& text, int left, int top, int scale) {
  for (const char character : text) {
    const font::Glyph glyph = font::GlyphOf(character);
    for (unsigned row = 0; row < font::kGlyphHeight; ++row) {
      for (unsigned column = 0; column < font::kGlyphWidth; ++column) {
        const bool ink = glyph.rows[row] >> (font::kGlyphWidth - 1 - column) & 1;
        const int x = left + static_cast<int>(column) * scale;
        const int y = top + static_cast<int>(row) * scale;
        if (At(picture, x, y) != (ink ? kBlack : kWhite)) return false;
      }
    }
    left += static_cast<int>(font::kAdvance) * scale;
  }
  return true;
}

// Where the strip says this: its first column. With white on both sides, so that "10" is not "0".
std::optional<int> Said(const Picture& picture, const std::string& text) {
  for (int scale = 1; scale <= 4; ++scale) {
    const int bottom = static_cast<int>(picture.height - font::kGlyphHeight * scale);
    for (int y = static_cast<int>(MapHeight(picture)); y <= bottom; ++y) {
      for (int x = 0; x < static_cast<int>(picture.width); ++x) {
        if (!StandsAt(picture, text, x, y, scale)) continue;
        const int before = x - static_cast<int>(font::kAdvance) * scale;
        if (StandsAt(picture, " " + text + " ", before, y, scale)) return x;
      }
    }
  }
  return std::nullopt;
}

bool Says(const Picture& picture, const std::string& text) {
  return Said(picture, text).has_value();
}

// The longest line across: pixels.
int BarLength(const Picture& picture) {
  int longest = 0;
  for (unsigned y = MapHeight(picture); y < picture.height; ++y) {
    int run = 0;
    for (unsigned x = 0; x < picture.width; ++x) {
      run = At(picture, static_cast<int>(x), static_cast<int>(y)) == kBlack ? run + 1 : 0;
      longest = std::max(longest, run);
    }
  }
  return longest;
}

// The strip's only colours.
struct Colours {
  int left = 0;
  int right = 0;   // the last column
  int bottom = 0;  // the row below
};

std::optional<Colours> ColoursOf(const Picture& picture) {
  std::optional<Colours> colours;
  for (unsigned y = MapHeight(picture); y < picture.height; ++y) {
    for (unsigned x = 0; x < picture.width; ++x) {
      const Rgb rgb = At(picture, static_cast<int>(x), static_cast<int>(y));
      if (rgb == kBlack || rgb == kWhite) continue;
      if (!colours) colours = Colours{.left = static_cast<int>(x)};
      colours->right = std::max(colours->right, static_cast<int>(x));
      colours->bottom = static_cast<int>(y) + 1;
    }
  }
  return colours;
}

// The first columns of the ticks below the colours.
std::vector<int> Ticks(const Picture& picture, const Colours& colours) {
  std::vector<int> ticks;
  for (int x = colours.left; x <= colours.right; ++x) {
    if (At(picture, x, colours.bottom) != kBlack) continue;
    if (At(picture, x - 1, colours.bottom) != kBlack) ticks.push_back(x);
  }
  return ticks;
}

struct Bar {
  const char* name;
  const char* arguments;
  double units_per_pixel;
  double length;
  const char* label;
  bool to_scale;
};

std::ostream& operator<<(std::ostream& out, const Bar& bar) { return out << bar.arguments; }

class ScaleBar : public ::testing::TestWithParam<Bar> {};

TEST_P(ScaleBar, IsAsLongAsItSays) {
  const Bar& bar = GetParam();
  const Picture picture = Captured(bar.arguments);
  EXPECT_TRUE(Says(picture, bar.label)) << bar.label;
  EXPECT_NEAR(BarLength(picture), bar.length / bar.units_per_pixel, 0.5 + 1e-9);
  EXPECT_NE(Says(picture, "1 profile a row"), bar.to_scale);
  EXPECT_TRUE(Says(picture, "not seen"));
  const bool columns = std::string(bar.label).find("columns") != std::string::npos;
  EXPECT_NE(Says(picture, "z in mm"), columns);
  EXPECT_EQ(Says(picture, "rows"), columns);
  EXPECT_TRUE(ColoursOf(picture));
}

constexpr double kScene = 72.8;  // mm, across the full sensor

constexpr Bar kBars[]{
    {"K3610", "-n 50 --virtual K3610", 2 * kScene / 1456, 20, "20 mm", true},
    {"K4010", "-n 50 --virtual K4010", 4 * kScene / 4096, 20, "20 mm", true},
    {"Region", "-n 50 --roi 320 448 800 400 --virtual K3610", kScene / 1456, 10, "10 mm", true},
    {"Numbers", "-n 50 --mm-per-column 0.003 --mm-per-row 0.1 --counts-per-mm 100 --virtual K3610",
     0.006, 1, "1 mm", true},
    {"Columns", "-n 50 --calibration none --virtual K3610", 2, 200, "200 columns", false},
    {"OneProfile", "-n 1 --virtual K3610", 2 * kScene / 1456, 20, "20 mm", false},
    {"Narrow", "-n 9 --roi 320 448 64 400 --virtual K3610", kScene / 1456, 1, "1 mm", true},
    {"NarrowColumns", "-n 9 --roi 320 448 64 400 --calibration none --virtual K3610", 1, 20,
     "20 columns", false},
    {"Narrowest", "-n 1 --roi 320 448 1 400 --calibration none --virtual K3610", 1, 20,
     "20 columns", false},
};

INSTANTIATE_TEST_SUITE_P(Captures, ScaleBar, ::testing::ValuesIn(kBars),
                         [](const auto& test) { return test.param.name; });

// The scene's heights are 0 to 10 mm.
TEST(Legend, ColoursGoFromTheLowestToTheHighest) {
  const Picture picture = Captured("-n 600 --virtual K3610");
  const auto colours = ColoursOf(picture);
  ASSERT_TRUE(colours);
  const Rgb lowest = At(picture, colours->left, colours->bottom - 1);
  const Rgb highest = At(picture, colours->right, colours->bottom - 1);
  EXPECT_GT(lowest[2], 150);
  EXPECT_EQ(lowest[0] + lowest[1], 0);
  EXPECT_GT(highest[0], 150);
  EXPECT_EQ(highest[1] + highest[2], 0);

  const std::vector<int> ticks = Ticks(picture, *colours);
  ASSERT_GE(ticks.size(), 5u);
  const double mm_per_pixel = 8.0 / (ticks[4] - ticks[0]);
  EXPECT_NEAR((colours->right - colours->left) * mm_per_pixel, 10, 0.1);
  EXPECT_NEAR(ticks[0], colours->left, 2);
  const char* labels[] = {"0", "2", "4", "6", "8"};
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_NEAR(Said(picture, labels[i]).value_or(-99), ticks[i], 9) << labels[i];
  }
}

// The line of what is high lies in a small row.
TEST(Legend, RowsAreThoseOfTheSensor) {
  const Picture picture = Captured("-n 600 --calibration none --virtual K3610");
  const auto low = Said(picture, "800");
  const auto high = Said(picture, "600");
  ASSERT_TRUE(low && high);
  EXPECT_LT(*low, *high);
  EXPECT_FALSE(Says(picture, "-800"));
}

// The colour at full light.
Rgb Lit(Rgb rgb) {
  const int most = std::max({rgb[0], rgb[1], rgb[2], 1});
  for (int& part : rgb) part = part * 255 / most;
  return rgb;
}

bool Alike(const Rgb& a, const Rgb& b) {
  constexpr int kSame = 12;
  return std::ranges::equal(a, b, [](int x, int y) { return std::abs(x - y) <= kSame; });
}

// The three stairs of the scene: the columns of their middles and their heights.
TEST(Legend, HasTheColoursOfTheMap) {
  const Picture picture = Captured("-n 600 --virtual K3610");
  const auto colours = ColoursOf(picture);
  ASSERT_TRUE(colours);
  const std::vector<int> ticks = Ticks(picture, *colours);
  ASSERT_GE(ticks.size(), 5u);
  for (const auto& [column, mm] : {std::pair(450, 3), {544, 6}, {638, 9}}) {
    const int x = ticks[0] + (ticks[4] - ticks[0]) * mm / 8;
    const Rgb shown = At(picture, x, colours->bottom - 1);
    int alike = 0;
    for (int y = 0; y < static_cast<int>(MapHeight(picture)); ++y) {
      if (Alike(Lit(At(picture, column, y)), Lit(shown))) ++alike;
    }
    EXPECT_GT(alike, 100) << mm << " mm";
  }
}

TEST(Legend, WithoutALineHasNoColours) {
  const Picture picture = Captured("-n 9 --laser off --virtual K3610");
  EXPECT_FALSE(ColoursOf(picture));
  EXPECT_TRUE(Says(picture, "not seen"));
  EXPECT_FALSE(Says(picture, "z in mm"));
}

// White beside the map: black would be something that was not seen.
TEST(Legend, IsWiderThanANarrowMap) {
  const Picture picture = Captured("-n 9 --roi 320 448 64 400 --virtual K3610");
  ASSERT_GT(picture.width, 64u);
  for (int y = 0; y < static_cast<int>(MapHeight(picture)); ++y) {
    EXPECT_NE(At(picture, 63, y), kWhite);
    EXPECT_EQ(At(picture, 64, y), kWhite);
  }
}

}  // namespace
}  // namespace tessaline_test
