#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "record/Messages.h"
#include "tessaline/frames.h"

namespace tool {

// Calls `use` with the header and all bytes of each strip of a buffer. False if the strips and
// their bytes do not fit each other; `use` gets those that do. Never reads beyond the bytes.
template <typename Use>
bool WalkStrips(const StripsMessage& buffer, Use use) {
  const std::size_t point_bytes = buffer.point_bytes;
  if (point_bytes != 8 && point_bytes != 4 && point_bytes != 2) return false;
  std::span<const std::byte> left = buffer.data;
  for (std::uint32_t i = 0; i < buffer.strips; ++i) {
    tessaline_strip_header header;
    if (left.size() < sizeof header) return false;
    std::memcpy(&header, left.data(), sizeof header);
    if (header.point_count > (left.size() - sizeof header) / point_bytes) return false;
    const std::size_t size = sizeof header + header.point_count * point_bytes;
    use(header, left.first(size));
    left = left.subspan(size);
  }
  return left.empty();
}

// The header behind an image's pixels. False if the image does not have its size.
inline bool ReadHeader(const ImageMessage& image, tessaline_image_header& header) {
  const std::size_t pixels = std::size_t{image.width} * image.height;
  if (pixels == 0 || image.data.size() != pixels + sizeof header) return false;
  std::memcpy(&header, image.data.data() + pixels, sizeof header);
  return true;
}

}  // namespace tool
