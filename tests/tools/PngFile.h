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

}  // namespace tessaline_test
