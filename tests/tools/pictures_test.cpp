// The pictures that the README shows are what its commands make.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "PngFile.h"
#include "ToolRun.h"

namespace tessaline_test {
namespace {

// Runs the README's line that writes this file, with the board at the pace of a sensor.
Picture Made(const Directory& directory, const std::string& file, unsigned format) {
  std::istringstream readme(FileText(TESSALINE_SOURCE "/README.md"));
  const std::string begin = "tessaline ";
  for (std::string line; std::getline(readme, line);) {
    if (!line.starts_with(begin) || line.find(" -o " + file) == std::string::npos) continue;
    const ToolResult result = ToolRun(line.substr(begin.size()))
                                  .In(directory.path())
                                  .With("TESSALINE_BOARD_PACE", "real")
                                  .Run();
    EXPECT_EQ(result.status, 0) << line << '\n' << result.err;
  }
  return ReadPng(directory / file, format);
}

Picture Shown(const std::string& file, unsigned format) {
  return ReadPng(TESSALINE_SOURCE "/docs/pictures/" + file, format);
}

// The mean of each colour in each column. The belt carries the scene from row to row and
// shows one period of it, so that a column's mean stays where a pixel does not.
std::vector<double> ColumnMeans(const Picture& picture) {
  const std::size_t stride = std::size_t{3} * picture.width;
  std::vector<double> means(stride);
  for (std::size_t i = 0; i < picture.pixels.size(); ++i) {
    means[i % stride] += static_cast<double>(picture.pixels[i]) / picture.height;
  }
  return means;
}

double MeanDifference(const std::vector<double>& a, const std::vector<double>& b) {
  if (a.size() != b.size() || a.empty()) return 255;
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += std::abs(a[i] - b[i]);
  return sum / static_cast<double>(a.size());
}

std::vector<double> Mirrored(std::vector<double> means) {
  std::vector<double> mirrored;
  for (std::size_t i = means.size(); i >= 3; i -= 3) {
    mirrored.insert(mirrored.end(), {means[i - 3], means[i - 2], means[i - 1]});
  }
  return mirrored;
}

TEST(Pictures, HeightMapIsTheReadmes) {
  const Directory directory;
  const Picture made = Made(directory, "height_map.png", PNG_FORMAT_RGB);
  const Picture shown = Shown("height_map.png", PNG_FORMAT_RGB);
  EXPECT_EQ(made.width, shown.width);
  // Rows are millimetres of the belt: a machine too busy for a profile has some more.
  EXPECT_GE(made.height, shown.height);
  const auto means = ColumnMeans(shown);
  constexpr double kSame = 4;  // of 255
  EXPECT_LT(MeanDifference(ColumnMeans(made), means), kSame);
  EXPECT_GT(MeanDifference(Mirrored(means), means), 2 * kSame) << "the measure tells nothing";
}

// Columns in which the laser line shows, and the mean of its rows.
std::array<double, 2> Line(const Picture& picture) {
  double columns = 0;
  double rows = 0;
  for (unsigned x = 0; x < picture.width; ++x) {
    unsigned brightest = 0;
    for (unsigned y = 0; y < picture.height; ++y) {
      const auto at = [&](unsigned row) {
        return picture.pixels[std::size_t{row} * picture.width + x];
      };
      if (at(y) > at(brightest)) brightest = y;
    }
    if (picture.pixels[std::size_t{brightest} * picture.width + x] < 128) continue;
    ++columns;
    rows += brightest;
  }
  return {columns, columns > 0 ? rows / columns : 0};
}

TEST(Pictures, CameraImageIsTheReadmes) {
  const Directory directory;
  const Picture made = Made(directory, "camera_image.png", PNG_FORMAT_GRAY);
  const Picture shown = Shown("camera_image.png", PNG_FORMAT_GRAY);
  ASSERT_EQ(made.width, shown.width);
  ASSERT_EQ(made.height, shown.height);
  const auto [made_columns, made_row] = Line(made);
  const auto [shown_columns, shown_row] = Line(shown);
  EXPECT_NEAR(made_columns, shown_columns, 0.05 * shown.width);
  EXPECT_GT(shown_columns, 0.8 * shown.width);
  // The line moves up by at most 10 mm of the scene's 40 mm.
  EXPECT_NEAR(made_row, shown_row, 0.25 * shown.height);
}

}  // namespace
}  // namespace tessaline_test
