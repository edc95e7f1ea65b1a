#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "capture/Canvas.h"

namespace tool {

// Blue (0, the lowest) over green and yellow to red (1). A light of 0 is black.
Rgb HeightColour(double height, double light);

// What a flat, bright surface has.
inline constexpr double kNormalLight = 0.9;

// What the colours and pixels of a height map stand for, in a white strip below it: a scale bar;
// that rows are single profiles, if they are not to scale; black for what was not seen; the colours
// from the lowest height to the highest. The letters grow with the map. Where the map is too narrow
// for a line, the picture gets wider, with white beside the map: no text is ever left out.
class Legend {
 public:
  struct Heights {
    double low;
    double high;
  };
  struct Content {
    bool millimetres = false;        // or columns and rows; heights are negative rows then
    double units_per_pixel = 1;      // across
    bool profile_a_row = false;      // rows are not to scale
    std::optional<Heights> heights;  // none if nothing was seen
  };

  Legend(const Content& content, unsigned map_width);

  unsigned width() const { return width_; }  // of the picture
  unsigned height() const;                   // of the strip
  void Draw(Canvas& picture, unsigned top) const;

 private:
  struct Tick {
    double at;  // 0: lowest, 1: highest
    std::string label;
  };

  unsigned TextWidth(std::string_view text) const;
  unsigned NotSeenWidth() const;
  unsigned TicksWidth() const;
  std::string_view Heading() const;  // of the colours
  void SetBar(unsigned map_width);
  void SetTicks(const Heights& heights);
  void DrawColours(Canvas& picture, unsigned top) const;

  Content content_;
  unsigned scale_;  // of letters and distances
  unsigned width_;
  unsigned bar_ = 0;  // pixels
  std::string bar_label_;
  std::vector<Tick> ticks_;
};

}  // namespace tool
