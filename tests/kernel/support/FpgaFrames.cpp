#include "support/FpgaFrames.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace kernel_test::frames {

namespace {

constexpr std::size_t kBlock = 16;
constexpr std::size_t kPlanes = 4;
constexpr unsigned kOutputBuffers = 4;  // filled once, then only changed

// The bytes of the capturing side, arranged in the lines of the output.
class Canvas {
 public:
  Canvas(std::byte* pixels, unsigned line_bytes, unsigned width)
      : pixels_(pixels), line_bytes_(line_bytes), width_(width) {}

  void Put(std::size_t offset, const void* data, std::size_t size) {
    const auto* from = static_cast<const std::byte*>(data);
    while (size > 0) {
      const std::size_t column = offset % width_;
      const std::size_t piece = std::min<std::size_t>(size, width_ - column);
      std::memcpy(pixels_ + offset / width_ * line_bytes_ + column, from, piece);
      offset += piece;
      from += piece;
      size -= piece;
    }
  }

 private:
  std::byte* pixels_;
  std::size_t line_bytes_;
  std::size_t width_;
};

}  // namespace

std::vector<std::byte> Image(unsigned width, unsigned height) {
  std::vector<std::byte> image(std::size_t{width} * height);
  std::uint32_t state = 1;
  for (std::byte& pixel : image) {
    state = state * 1664525u + 1013904223u;
    pixel = static_cast<std::byte>(state >> 24);
  }
  return image;
}

void SendImages(LoopedVideo& video, const Product& product) {
  const std::size_t quarter = std::size_t{product.full_width} * product.full_height / kPlanes;
  const std::size_t pixels = std::size_t{product.width} * product.height;
  auto in_planes = std::make_shared<std::vector<std::byte>>(3 * quarter + pixels / kPlanes);
  const auto image = Image(product.width, product.height);
  for (std::size_t block = 0; block < pixels / kBlock; ++block) {
    std::memcpy(in_planes->data() + block % kPlanes * quarter + block / kPlanes * kBlock,
                image.data() + block * kBlock, kBlock);
  }
  video.Start([=](unsigned frame, std::byte* out, unsigned line_bytes) {
    Canvas canvas(out, line_bytes, product.full_width);
    if (frame < kOutputBuffers) canvas.Put(0, in_planes->data(), in_planes->size());
    const tessaline_image_header header{frame + 1u, frame + 1u, 2u * frame, 0x0123456789ABCDEFu};
    canvas.Put(in_planes->size(), &header, sizeof header);
  });
}

std::vector<std::byte> Strips(unsigned strips, unsigned points) {
  const std::size_t strip_bytes =
      sizeof(tessaline_strip_header) + points * sizeof(tessaline_full_point);
  std::vector<std::byte> all(strips * strip_bytes);
  for (unsigned strip = 0; strip < strips; ++strip) {
    std::byte* at = all.data() + strip * strip_bytes;
    const tessaline_strip_header header{0, 0, 0, points};
    std::memcpy(at, &header, sizeof header);
    at += sizeof header;
    for (unsigned i = 0; i < points; ++i, at += sizeof(tessaline_full_point)) {
      const std::uint32_t row = 500 * TESSALINE_FULL_ROW_STEPS + i * 37 + strip;
      const tessaline_full_point point{static_cast<std::uint16_t>(i), 200, 0, row};
      std::memcpy(at, &point, sizeof point);
    }
  }
  return all;
}

void SendStrips(LoopedVideo& video, const Product& product, unsigned strips, unsigned points) {
  const auto all = std::make_shared<std::vector<std::byte>>(Strips(strips, points));
  const std::size_t strip_bytes = all->size() / strips;
  const std::size_t end = std::size_t{product.strip_width} * product.strip_height;
  video.Start([=](unsigned frame, std::byte* out, unsigned line_bytes) {
    Canvas canvas(out, line_bytes, product.strip_width);
    if (frame < kOutputBuffers) canvas.Put(0, all->data(), all->size());
    for (unsigned strip = 0; strip < strips; ++strip) {
      const std::uint64_t id = std::uint64_t{frame} * strips + strip + 1;
      const tessaline_strip_header header{id, id * 1000, id * 20, points};
      canvas.Put(strip * strip_bytes, &header, sizeof header);
    }
    const std::uint64_t count = strips;
    canvas.Put(end - sizeof count, &count, sizeof count);
  });
}

}  // namespace kernel_test::frames
