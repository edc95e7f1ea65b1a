#pragma once

#include <optional>
#include <vector>

#include "model/Head.h"
#include "model/Surface.h"

namespace board {

// The laser line on a surface, as a head's camera sees it: without noise, but with the shadows that
// the surface casts on itself.
class LaserLine {
 public:
  // The head must outlive this. Set `view_is_free` if nothing on this surface can be between it and
  // the camera.
  LaserLine(const Head& head, const Surface& surface, bool view_is_free);

  struct Place {
    double row;  // of the full sensor
    PlanePoint point;
  };
  // What a column of the full sensor sees; of several places the one nearest to the camera.
  std::optional<Place> At(double column) const;

 private:
  struct Part {
    Head::Columns columns;  // that may see it
    double left, right;     // x, mm
    Head::ImageLine line;
  };

  const Head& head_;
  std::vector<Part> parts_;
  std::optional<Cap> cap_;
  Head::Columns cap_columns_{};
};

}  // namespace board
