#pragma once

#include "Models.h"
#include "Region.h"

namespace tool {

// How columns, rows and encoder counts become a position in space. A real sensor is calibrated;
// without calibration, columns and rows stand for themselves.
struct Geometry {
  double mm_per_column = 1;
  double column_at_zero = 0;  // this and row_at_zero are those of the full sensor
  double mm_per_row = 1;      // height lost per row further down
  double row_at_zero = 0;     // the row of height 0
  double counts_per_mm = 1;
  bool calibrated = false;
  // Where the region of interest begins: columns and rows of a frame count from there.
  unsigned first_column = 0;
  unsigned first_row = 0;

  double X(double column) const {
    return calibrated ? (column + first_column - column_at_zero) * mm_per_column : column;
  }
  double Z(double row) const {
    return calibrated ? (row_at_zero - row - first_row) * mm_per_row : -row;
  }
  double Y(double encoder_counts) const { return encoder_counts / counts_per_mm; }

  Geometry In(const Region& region) const;
};

// The geometry of the virtual board's scene on the full sensor, see docs/virtual-board.md.
Geometry VirtualGeometry(const Model& model);

}  // namespace tool
