#pragma once

#include <cstring>
#include <memory>
#include <vector>

#include "tessaline/profile.h"

namespace profile_test {

// Strips as a handler gets them, in a block of exactly their size: the address sanitizer sees a
// byte too many.
class StripBytes {
 public:
  explicit StripBytes(unsigned point_bytes) : point_bytes_(point_bytes) {}

  template <typename Point>
  void Add(std::uint64_t frame_id, const std::vector<Point>& points) {
    AddHeader({frame_id, 1000 + frame_id, 2000 + frame_id, points.size()});
    if (!points.empty()) Append(points.data(), points.size() * sizeof(Point));
  }
  void AddHeader(const tessaline_strip_header& header) {
    Append(&header, sizeof header);
    ++strips_;
  }
  void Append(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    bytes_.insert(bytes_.end(), bytes, bytes + size);
  }
  void CutOff(std::size_t bytes) { bytes_.resize(bytes_.size() - bytes); }

  tessaline_strips Begin() { return Begin(strips_); }
  tessaline_strips Begin(std::uint32_t strips) {
    block_ = std::make_unique<unsigned char[]>(bytes_.size());
    if (!bytes_.empty()) std::memcpy(block_.get(), bytes_.data(), bytes_.size());
    tessaline_strips begun{};
    EXPECT_EQ(tessaline_strips_begin(&begun, block_.get(), bytes_.size(), strips, point_bytes_), 0);
    return begun;
  }

 private:
  unsigned point_bytes_;
  std::uint32_t strips_ = 0;
  std::vector<unsigned char> bytes_;
  std::unique_ptr<unsigned char[]> block_;
};

// The arrays of a profile and of its millimetres.
struct Arrays {
  explicit Arrays(std::size_t capacity)
      : column(capacity, kUntouched),
        row(capacity, kUntouched),
        x(capacity, kUntouched),
        z(capacity, kUntouched),
        x_sigma(capacity, kUntouched),
        z_sigma(capacity, kUntouched),
        peak(capacity, 77),
        width(capacity, 77),
        valid(capacity, 77),
        marked(capacity, 77) {}

  static constexpr float kUntouched = -12345;

  tessaline_profile Profile() {
    return {.capacity = column.size(),
            .column = column.data(),
            .row = row.data(),
            .peak = peak.data(),
            .width = width.data(),
            .valid = valid.data(),
            .point_count = 0,
            .frame_id = 0,
            .time_stamp = 0,
            .encoder_stamp = 0,
            .sensor_width = 0,
            .sensor_height = 0};
  }
  tessaline_millimetres Millimetres() {
    return {x.data(), z.data(), x_sigma.data(), z_sigma.data(), marked.data()};
  }

  std::vector<float> column, row, x, z, x_sigma, z_sigma;
  std::vector<std::uint8_t> peak, width, valid;
  std::vector<std::uint8_t> marked;  // valid, after it was measured
};

}  // namespace profile_test
