#include "capture/Picture.h"

#include <fmt/core.h>
#include <png.h>

#include "Failure.h"

namespace tool {

std::vector<std::uint8_t> EncodePng(unsigned width, unsigned height, unsigned channels,
                                    std::span<const std::uint8_t> pixels) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = width;
  image.height = height;
  image.format = channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  image.flags = PNG_IMAGE_FLAG_FAST;
  std::vector<std::uint8_t> bytes(PNG_IMAGE_PNG_SIZE_MAX(image));
  png_alloc_size_t size = bytes.size();
  if (png_image_write_to_memory(&image, bytes.data(), &size, 0, pixels.data(), 0, nullptr) == 0) {
    throw Failure(ExitCode::kFile, fmt::format("cannot make a PNG picture: {}", image.message));
  }
  bytes.resize(size);
  return bytes;
}

std::vector<std::uint8_t> EncodePgm(unsigned width, unsigned height,
                                    std::span<const std::uint8_t> pixels,
                                    const std::string& comment) {
  const std::string head = fmt::format("P5\n# {}\n{} {}\n255\n", comment, width, height);
  std::vector<std::uint8_t> bytes(head.begin(), head.end());
  bytes.insert(bytes.end(), pixels.begin(), pixels.end());
  return bytes;
}

}  // namespace tool
