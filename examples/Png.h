#pragma once

#include <png.h>

#include <cstdint>
#include <cstdio>
#include <vector>

// Pictures with 1 (grey) or 3 (RGB) bytes per pixel, written with libpng.
struct Picture {
  unsigned width = 0;
  unsigned height = 0;
  unsigned channels = 1;
  std::vector<std::uint8_t> bytes;

  Picture() = default;
  Picture(unsigned w, unsigned h, unsigned c)
      : width(w), height(h), channels(c), bytes(std::size_t{w} * h * c) {}

  std::uint8_t* At(unsigned x, unsigned y) {
    return &bytes[(std::size_t{y} * width + x) * channels];
  }
};

inline bool WritePng(const Picture& picture, const char* name) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = picture.width;
  image.height = picture.height;
  image.format = picture.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  if (png_image_write_to_file(&image, name, 0, picture.bytes.data(), 0, nullptr) != 0) return true;
  std::fprintf(stderr, "%s: %s\n", name, image.message);
  return false;
}
