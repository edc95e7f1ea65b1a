#pragma once

#include "Models.h"

namespace tool {

// How columns, rows and encoder counts become a position in space. A real sensor is calibrated;
// without calibration, columns and rows stand for themselves.
struct Geometry {
  double mm_per_column = 1;
  double column_at_zero = 0;
  double mm_per_row = 1;   // height lost per row further down
  double row_at_zero = 0;  // the row of height 0
  double counts_per_mm = 1;
  bool calibrated = false;

  double X(double column) const { return (column - column_at_zero) * mm_per_column; }
  double Z(double row) const { return (row_at_zero - row) * mm_per_row; }
  double Y(double encoder_counts) const { return encoder_counts / counts_per_mm; }
};

// The geometry of the virtual board's scene, see docs/virtual-board.md.
Geometry VirtualGeometry(const Model& model);

}  // namespace tool
