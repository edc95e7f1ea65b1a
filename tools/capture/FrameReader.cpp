#include "capture/FrameReader.h"

#include <cmath>
#include <cstring>

namespace tool {
namespace {

constexpr std::size_t kWidestFrame = 32768;  // columns

}  // namespace

StripReader::StripReader(std::size_t point_bytes, const tessaline_geometry& geometry,
                         const std::optional<tessaline_calibration>& calibration)
    : point_bytes_(point_bytes), geometry_(geometry), calibration_(calibration) {
  for (auto* numbers : {&columns_, &rows_, &x_, &z_}) numbers->resize(kWidestFrame);
  for (auto* numbers : {&peaks_, &widths_, &valid_}) numbers->resize(kWidestFrame);
}

bool StripReader::Read(unsigned strips, std::span<const std::uint8_t> bytes,
                       const std::function<void(const Frame&)>& use) {
  tessaline_strips reading{};
  if (tessaline_strips_begin(&reading, bytes.data(), bytes.size(), strips,
                             static_cast<std::uint32_t>(point_bytes_)) != 0) {
    return false;
  }
  tessaline_profile profile{};
  profile.capacity = kWidestFrame;
  profile.column = columns_.data();
  profile.row = rows_.data();
  profile.peak = peaks_.data();
  profile.width = widths_.data();
  profile.valid = valid_.data();
  for (;;) {
    const unsigned char* const begin = reading.next;
    const int result = tessaline_strips_next(&reading, &geometry_, &profile);
    if (result != 0) return result == TESSALINE_PROFILE_END;
    Frame frame{};
    frame.id = profile.frame_id;
    frame.time_stamp = profile.time_stamp;
    frame.encoder_stamp = profile.encoder_stamp;
    frame.raw = {begin, reading.next};
    Measure(profile, frame);
    use(frame);
  }
}

void StripReader::Measure(const tessaline_profile& profile, Frame& frame) {
  const tessaline_millimetres mm{x_.data(), z_.data(), nullptr, nullptr, valid_.data()};
  if (calibration_) tessaline_profile_to_mm(&*calibration_, &profile, &mm);
  frame.points.reserve(profile.point_count);
  for (std::size_t i = 0; i < profile.point_count; ++i) {
    if (valid_[i] == 0) continue;
    frame.outside_field += (valid_[i] & TESSALINE_OUTSIDE_FIELD) != 0;
    frame.points.push_back({static_cast<unsigned>(std::lround(columns_[i])), rows_[i], peaks_[i],
                            widths_[i], calibration_ ? x_[i] : 0, calibration_ ? z_[i] : 0});
  }
}

Frame ReadImage(unsigned width, unsigned height, std::span<const std::uint8_t> bytes) {
  Frame frame{};
  frame.width = width;
  frame.height = height;
  frame.raw = bytes;
  frame.pixels = bytes.first(std::size_t{width} * height);
  tessaline_image_header header;
  std::memcpy(&header, bytes.data() + frame.pixels.size(), sizeof header);
  frame.id = header.frame_id;
  frame.time_stamp = header.time_stamp;
  frame.encoder_stamp = header.encoder_stamp;
  return frame;
}

}  // namespace tool
