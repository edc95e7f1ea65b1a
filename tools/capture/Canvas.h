#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "capture/Font.h"

namespace tool {

using Rgb = std::array<std::uint8_t, 3>;

inline constexpr Rgb kBlack{0, 0, 0};
inline constexpr Rgb kWhite{255, 255, 255};

// A picture in colours. What is drawn beyond its edges is lost.
class Canvas {
 public:
  Canvas(unsigned width, unsigned height)
      : width_(width), height_(height), pixels_(std::size_t{3} * width * height, 255) {}

  unsigned width() const { return width_; }
  unsigned height() const { return height_; }
  const std::vector<std::uint8_t>& pixels() const { return pixels_; }

  void Fill(unsigned x, unsigned y, unsigned width, unsigned height, Rgb colour) {
    const unsigned right = std::min(width_, x + width);
    const unsigned bottom = std::min(height_, y + height);
    for (unsigned row = y; row < bottom; ++row) {
      for (unsigned column = x; column < right; ++column) {
        std::copy(colour.begin(), colour.end(), &pixels_[(std::size_t{row} * width_ + column) * 3]);
      }
    }
  }

  // In black. `scale`: pixels of the picture for one of the font.
  void Write(unsigned x, unsigned y, unsigned scale, std::string_view text) {
    for (const char character : text) {
      const font::Glyph glyph = font::GlyphOf(character);
      for (unsigned row = 0; row < font::kGlyphHeight; ++row) {
        for (unsigned column = 0; column < font::kGlyphWidth; ++column) {
          if ((glyph.rows[row] >> (font::kGlyphWidth - 1 - column) & 1) == 0) continue;
          Fill(x + column * scale, y + row * scale, scale, scale, kBlack);
        }
      }
      x += font::kAdvance * scale;
    }
  }

 private:
  unsigned width_;
  unsigned height_;
  std::vector<std::uint8_t> pixels_;
};

}  // namespace tool
