#pragma once

#include <vector>

#include "calibrate/Target.h"
#include "calibrate/View.h"

namespace tool::calibrate {

// Samples of a view that lie on one facet of the target.
struct Piece {
  std::size_t facet;
  std::size_t begin;  // of the view's samples
  std::size_t end;
};

// A place of the target's outline that a view shows: a vertex of a sawtooth, the edge of a tread.
struct Corner {
  double column;
  double row;
  Eigen::Vector2d place;  // in the target's frame
};

// A view, taken apart into the facets of the target.
struct Outline {
  std::vector<Piece> pieces;
  std::vector<Corner> corners;
  // Columns of tread edges are measured, too. Those of a sawtooth's vertices follow from its
  // facets.
  bool corners_are_measured = false;
};

// Throws a Failure if the view does not show this target. Facets count from the one that the
// target stands on in the middle of the field; a pose can put that right.
Outline TakeApart(const View& view, const Target& target, double middle_column);

}  // namespace tool::calibrate
