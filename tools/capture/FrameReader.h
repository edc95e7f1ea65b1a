#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "capture/Frame.h"
#include "tessaline/frames.h"
#include "tessaline/profile.h"

namespace tool {

// Takes apart what the strip handler gets.
class StripReader {
 public:
  StripReader(std::size_t point_bytes, const tessaline_geometry& geometry,
              const std::optional<tessaline_calibration>& calibration = {});

  // False if the strips do not fit into the bytes; `use` gets those that do. The frames point into
  // the bytes.
  bool Read(unsigned strips, std::span<const std::uint8_t> bytes,
            const std::function<void(const Frame&)>& use);

 private:
  void Measure(const tessaline_profile& profile, Frame& frame);

  std::size_t point_bytes_;
  tessaline_geometry geometry_;
  std::optional<tessaline_calibration> calibration_;
  std::vector<float> columns_, rows_, x_, z_, x_sigma_, z_sigma_;
  std::vector<std::uint8_t> peaks_, widths_, valid_;
};

// What the image handler gets: `bytes` are the pixels and the header behind.
Frame ReadImage(unsigned width, unsigned height, std::span<const std::uint8_t> bytes);

inline constexpr std::size_t kFrameHeaderBytes = sizeof(tessaline_image_header);

}  // namespace tool
