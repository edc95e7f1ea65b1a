#pragma once

#include <png.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tessaline_test {

struct Picture {
  unsigned width = 0;
  unsigned height = 0;
  std::vector<std::uint8_t> pixels;
};

// Empty when the file cannot be read.
inline Picture ReadPng(const std::string& path, unsigned format) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  Picture picture;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return picture;
  image.format = format;
  picture.width = image.width;
  picture.height = image.height;
  picture.pixels.resize(PNG_IMAGE_SIZE(image));
  png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr);
  return picture;
}

// The rows of a height map (RGB) above its legend, which begins with a white row.
inline unsigned MapHeight(const Picture& picture) {
  for (unsigned y = 0; y < picture.height; ++y) {
    const std::uint8_t* row = &picture.pixels[std::size_t{3} * picture.width * y];
    if (row[0] == 255 && row[1] == 255 && row[2] == 255) return y;
  }
  return picture.height;
}

}  // namespace tessaline_test
