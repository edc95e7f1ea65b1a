#include "capture/FrameReader.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace tool {
namespace {

constexpr std::size_t kWidestFrame = 32768;  // columns
constexpr float kUnknown = std::numeric_limits<float>::quiet_NaN();

// One that is made by hand, or is that of ideal optics, does not.
bool StatesUncertainty(const tessaline_calibration& c) {
  return c.column_sigma > 0 || c.row_sigma > 0 || c.x_sigma > 0 || c.z_sigma > 0;
}

}  // namespace

StripReader::StripReader(std::size_t point_bytes, const tessaline_geometry& geometry,
                         const std::optional<tessaline_calibration>& calibration)
    : point_bytes_(point_bytes), geometry_(geometry), calibration_(calibration) {
  for (auto* numbers : {&columns_, &rows_, &x_, &z_}) numbers->resize(kWidestFrame);
  for (auto* numbers : {&x_sigma_, &z_sigma_}) numbers->resize(kWidestFrame, kUnknown);
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
  if (calibration_) {
    tessaline_millimetres mm{};
    mm.x = x_.data();
    mm.z = z_.data();
    mm.valid = valid_.data();
    if (StatesUncertainty(*calibration_)) {
      mm.x_sigma = x_sigma_.data();
      mm.z_sigma = z_sigma_.data();
    }
    tessaline_profile_to_mm(&*calibration_, &profile, &mm);
  }
  frame.points.reserve(profile.point_count);
  for (std::size_t i = 0; i < profile.point_count; ++i) {
    if (valid_[i] == 0) continue;
    frame.outside_field += (valid_[i] & TESSALINE_OUTSIDE_FIELD) != 0;
    // Without a calibration, the arrays stay as they were made.
    frame.points.push_back({static_cast<unsigned>(std::lround(columns_[i])), rows_[i], peaks_[i],
                            widths_[i], x_[i], z_[i], x_sigma_[i], z_sigma_[i]});
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
