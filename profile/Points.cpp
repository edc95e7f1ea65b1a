// The loops over points. They are written for the compiler to vectorise: no branch and no call
// inside, every array for itself, and one loop for each thing that a caller may leave out.
// docs/profile.md says how to see that it does.
#include "Points.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "Wide.h"

namespace profile {

namespace {

constexpr float kNowhere = std::numeric_limits<float>::quiet_NaN();
constexpr std::uint32_t kMostPixels = 32768;
constexpr std::uint32_t kLargestStep = 16;

// So far out that no sensor has it, whatever the layout's steps and wherever the frame lies.
constexpr std::int32_t kNoRow = std::numeric_limits<std::int32_t>::min();
static_assert(kNoRow / -TESSALINE_FULL_ROW_STEPS >= static_cast<std::int32_t>(kMostPixels));

// Where the frame's positions of one axis lie on the full sensor.
struct Axis {
  Axis(std::uint32_t size, std::uint32_t first, std::uint32_t step, bool flip, int steps_per_pixel)
      : last(static_cast<float>(size - 1)),
        start(flip ? last - static_cast<float>(first) : static_cast<float>(first)),
        scale(static_cast<float>(step) /
              static_cast<float>(flip ? -steps_per_pixel : steps_per_pixel)) {}

  float At(std::int32_t position) const { return start + scale * static_cast<float>(position); }
  int Holds(float at) const { return int{at >= 0} & int{at <= last}; }

  float last, start, scale;
};

struct Axes {
  Axis column, row;

  Axes(const tessaline_geometry& g, int row_steps)
      : column(g.sensor_width, g.first_column, g.column_step, g.flip_columns != 0, 1),
        row(g.sensor_height, g.first_row, g.row_step, g.flip_rows != 0, row_steps) {}
};

// Numbers of the strip, which lies at any address. The loops read whole numbers and take the fields
// out of them: records with fields of several sizes are not vectorised.
std::uint32_t Long(const unsigned char* bytes, std::size_t index) {
  std::uint32_t number;
  std::memcpy(&number, bytes + index * sizeof number, sizeof number);
  return number;
}

std::uint16_t Short(const unsigned char* bytes, std::size_t index) {
  std::uint16_t number;
  std::memcpy(&number, bytes + index * sizeof number, sizeof number);
  return number;
}

// Where a point is in the frame: its column, and its row in steps or kNoRow.
struct Position {
  std::int32_t column, row;
};

Position FullPoint(const unsigned char* bytes, std::size_t i) {
  static_assert(offsetof(tessaline_full_point, column) == 0);
  static_assert(offsetof(tessaline_full_point, row) == sizeof(std::uint32_t));
  // The vector instructions convert signed numbers only.
  const auto row = static_cast<std::int32_t>(Long(bytes, 2 * i + 1));
  return {static_cast<std::int32_t>(Long(bytes, 2 * i) & 0xFFFF), row < 0 ? kNoRow : row};
}

Position ShortPoint(const unsigned char* bytes, std::size_t i) {
  static_assert(offsetof(tessaline_short_point, row) == sizeof(std::uint16_t));
  const std::uint32_t point = Long(bytes, i);
  return {static_cast<std::int32_t>(point & 0xFFFF), static_cast<std::int32_t>(point >> 16)};
}

Position RowPoint(const unsigned char* bytes, std::size_t i) {
  static_assert(sizeof(tessaline_row_point) == sizeof(std::uint16_t));
  const std::int32_t row = Short(bytes, i);
  return {static_cast<std::int32_t>(i), row == TESSALINE_NO_LINE ? kNoRow : row};
}

// The same loop with and without what else points of 8 bytes have. The arrays are arguments because
// that is where both compilers believe that they do not overlap.
template <bool kWithLooks, typename Layout>
void Place(Layout position_of, const unsigned char* __restrict bytes, std::size_t count,
           const Axes axes, float* __restrict columns, float* __restrict rows,
           std::uint8_t* __restrict valid, std::uint8_t* __restrict peaks,
           std::uint8_t* __restrict widths) {
  static_assert(offsetof(tessaline_full_point, peak) == 2);
  static_assert(offsetof(tessaline_full_point, width) == 3);
  for (std::size_t i = 0; i < count; ++i) {
    const Position position = position_of(bytes, i);
    const float column = axes.column.At(position.column);
    const float row = axes.row.At(position.row);
    // Not &&, which would be a branch.
    const int holds = axes.column.Holds(column) & axes.row.Holds(row);
    columns[i] = column;
    rows[i] = holds != 0 ? row : kNowhere;
    valid[i] = static_cast<std::uint8_t>(holds);
    if constexpr (kWithLooks) {
      const std::uint32_t point = Long(bytes, 2 * i);
      peaks[i] = static_cast<std::uint8_t>(point >> 16);
      widths[i] = static_cast<std::uint8_t>(point >> 24);
    }
  }
}

void ReadAll(const unsigned char* bytes, std::size_t count, std::size_t point_bytes,
             const tessaline_geometry& geometry, const tessaline_profile& profile) {
  const auto place = [&]<bool kWithLooks>(auto layout, int row_steps) {
    Place<kWithLooks>(layout, bytes, count, Axes(geometry, row_steps), profile.column, profile.row,
                      profile.valid, profile.peak, profile.width);
  };
  const bool looks = profile.peak != nullptr;
  if (point_bytes == sizeof(tessaline_full_point)) {
    const auto full = [](auto... at) { return FullPoint(at...); };
    if (looks) {
      place.template operator()<true>(full, TESSALINE_FULL_ROW_STEPS);
    } else {
      place.template operator()<false>(full, TESSALINE_FULL_ROW_STEPS);
    }
    return;
  }
  if (point_bytes == sizeof(tessaline_short_point)) {
    place.template operator()<false>([](auto... at) { return ShortPoint(at...); },
                                     TESSALINE_SHORT_ROW_STEPS);
  } else {
    place.template operator()<false>([](auto... at) { return RowPoint(at...); },
                                     TESSALINE_SHORT_ROW_STEPS);
  }
  if (looks) {
    std::memset(profile.peak, 0, count);
    std::memset(profile.width, 0, count);
  }
}

TESSALINE_PROFILE_WIDE void ReadAllWide(const unsigned char* bytes, std::size_t count,
                                        std::size_t point_bytes, const tessaline_geometry& geometry,
                                        const tessaline_profile& profile) {
  ReadAll(bytes, count, point_bytes, geometry, profile);
}

}  // namespace

bool IsPossible(const tessaline_geometry& g) {
  const auto on = [](std::uint32_t size, std::uint32_t first, std::uint32_t step,
                     std::uint32_t flip) {
    return size >= 1 && size <= kMostPixels && first < size && step >= 1 && step <= kLargestStep &&
           flip <= 1;
  };
  return on(g.sensor_width, g.first_column, g.column_step, g.flip_columns) &&
         on(g.sensor_height, g.first_row, g.row_step, g.flip_rows);
}

bool IsLayout(std::size_t point_bytes) {
  return point_bytes == sizeof(tessaline_full_point) ||
         point_bytes == sizeof(tessaline_short_point) || point_bytes == sizeof(tessaline_row_point);
}

void ReadPoints(const unsigned char* bytes, std::size_t count, std::size_t point_bytes,
                const tessaline_geometry& geometry, const tessaline_profile& profile) {
  const auto read = HasWideVectors() ? ReadAllWide : ReadAll;
  read(bytes, count, point_bytes, geometry, profile);
}

}  // namespace profile
