#include "model/LaserLine.h"

namespace board {

LaserLine::LaserLine(const Head& head, const Surface& surface, bool view_is_free)
    : head_(head), cap_(surface.cap) {
  std::vector<Face> faces = PartsInView(surface.faces, surface, kLaserSource);
  if (!view_is_free) faces = PartsInView(faces, surface, head.Camera());
  parts_.reserve(faces.size());
  for (const Face& face : faces) {
    if (face.wall) continue;
    parts_.push_back({{head.ColumnsOf(face.from).first, head.ColumnsOf(face.to).last},
                      face.from.x,
                      face.to.x,
                      head.Image(face.from, face.to)});
  }
  if (cap_) {
    cap_columns_ = {head.ColumnsOf({cap_->left, 0}).first, head.ColumnsOf({cap_->right, 0}).last};
  }
}

std::optional<LaserLine::Place> LaserLine::At(double column) const {
  std::optional<Place> seen;
  const auto look = [&](double row, double left, double right) {
    if (seen && row >= seen->row) return;
    const PlanePoint point = head_.ToMillimetres(column, row);
    if (point.x >= left && point.x < right) seen = {row, point};
  };
  for (const Part& part : parts_) {
    if (column < part.columns.first || column > part.columns.last) continue;
    look(head_.RowOf(part.line, column), part.left, part.right);
  }
  if (cap_ && column >= cap_columns_.first && column <= cap_columns_.last) {
    look(head_.RowOfCircle(cap_->centre, cap_->radius, column), cap_->left, cap_->right);
  }
  return seen;
}

}  // namespace board
