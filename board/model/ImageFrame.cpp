#include "model/ImageFrame.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace board {
namespace {

constexpr std::size_t kPlanes = 4;
constexpr std::size_t kBlockBytes = 16;
constexpr std::size_t kHeaderBytes = 32;
constexpr std::size_t kNoiseBytes = 1 << 18;

// The pixels on either side of its middle in which a line is seen.
int ReachOf(double light) {
  constexpr double kLeast = 6;
  const double seen = kLineSigma * std::sqrt(2 * std::log(std::max(light, 1.0)));
  return static_cast<int>(std::ceil(std::max(kLeast, seen)));
}

std::size_t PlaceOf(std::size_t pixel, std::size_t quarter) {
  const std::size_t block = pixel / kBlockBytes;
  return block % kPlanes * quarter + block / kPlanes * kBlockBytes + pixel % kBlockBytes;
}

// A dark frame with noise, which is copied to every image.
const std::vector<std::uint8_t>& Dark() {
  static const auto* const noise = [] {
    auto* pixels = new std::vector<std::uint8_t>(kNoiseBytes);
    std::mt19937 random(1);
    std::normal_distribution<double> grey(7.0, 1.6);
    for (std::uint8_t& pixel : *pixels) {
      pixel = static_cast<std::uint8_t>(std::clamp(grey(random), 0.0, 255.0));
    }
    return pixels;
  }();
  return *noise;
}

}  // namespace

std::size_t WriteImage(const Exposure& exposure, std::size_t full_pixels,
                       std::span<std::uint8_t> buffer) {
  const std::size_t pixels = std::size_t{exposure.width} * exposure.height;
  const std::size_t quarter = full_pixels / kPlanes;
  const std::size_t plane_bytes = pixels / kPlanes;
  if (pixels > full_pixels || 3 * quarter + plane_bytes + kHeaderBytes > buffer.size()) return 0;

  std::size_t noise = exposure.frame_id * 4099 % (kNoiseBytes / 2);
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    for (std::size_t done = 0; done < plane_bytes;) {
      const std::size_t chunk = std::min(plane_bytes - done, kNoiseBytes / 2);
      std::memcpy(&buffer[plane * quarter + done], &Dark()[noise], chunk);
      noise = (noise + 7919) % (kNoiseBytes / 2);
      done += chunk;
    }
  }

  const ExposedLine exposed(exposure);
  for (unsigned column = 0; column < exposure.width; ++column) {
    const LinePoint point = exposed.At(column);
    if (point.peak <= 0) continue;
    const int middle = static_cast<int>(std::lround(point.row));
    const int reach = ReachOf(point.light);
    for (int row = middle - reach; row <= middle + reach; ++row) {
      if (row < 0 || row >= static_cast<int>(exposure.height)) continue;
      const double away = (row - point.row) / kLineSigma;
      const double light = point.light * std::exp(-0.5 * away * away);
      const std::size_t pixel = static_cast<std::size_t>(row) * exposure.width + column;
      if (pixel / (kPlanes * kBlockBytes) * kBlockBytes + kBlockBytes > plane_bytes) continue;
      std::uint8_t& grey = buffer[PlaceOf(pixel, quarter)];
      grey = static_cast<std::uint8_t>(std::min(255.0, grey + light));
    }
  }

  const std::array<std::uint64_t, 4> header{exposure.frame_id, exposure.time_stamp,
                                            exposure.encoder_stamp, 0};
  std::memcpy(&buffer[3 * quarter + plane_bytes], header.data(), sizeof header);
  return 3 * quarter + plane_bytes + kHeaderBytes;
}

std::size_t PutImage(std::span<const std::byte> image, std::size_t full_pixels,
                     std::span<std::uint8_t> buffer) {
  if (image.size() < kHeaderBytes) return 0;
  const std::size_t pixels = image.size() - kHeaderBytes;
  const std::size_t quarter = full_pixels / kPlanes;
  const std::size_t header_at = 3 * quarter + pixels / kPlanes;
  if (pixels > full_pixels || header_at + kHeaderBytes > buffer.size()) return 0;
  const std::size_t whole_groups = pixels / (kPlanes * kBlockBytes) * (kPlanes * kBlockBytes);
  for (std::size_t pixel = 0; pixel < whole_groups; pixel += kBlockBytes) {
    std::memcpy(&buffer[PlaceOf(pixel, quarter)], &image[pixel], kBlockBytes);
  }
  std::memcpy(&buffer[header_at], &image[pixels], kHeaderBytes);
  return header_at + kHeaderBytes;
}

void TakeImage(const Exposure& exposure, std::size_t full_pixels,
               std::span<const std::uint8_t> buffer, std::vector<std::uint8_t>& image) {
  const std::size_t pixels = std::size_t{exposure.width} * exposure.height;
  const std::size_t quarter = full_pixels / kPlanes;
  const std::size_t whole_groups = pixels / (kPlanes * kBlockBytes) * (kPlanes * kBlockBytes);
  image.assign(pixels + kHeaderBytes, 0);
  for (std::size_t pixel = 0; pixel < whole_groups; pixel += kBlockBytes) {
    std::memcpy(&image[pixel], &buffer[PlaceOf(pixel, quarter)], kBlockBytes);
  }
  std::memcpy(&image[pixels], &buffer[3 * quarter + pixels / kPlanes], kHeaderBytes);
}

}  // namespace board
