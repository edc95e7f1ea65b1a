// Compares the in-place reorder of an image with the plain way, which gathers the image in a zeroed
// work area and copies it back. Each input has two frames, which share the scratch memory.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "Runnable/ImageReorder.h"
#include "support/Require.h"

namespace {

using tessaline_fuzz::Require;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)

constexpr std::size_t kMaxBytes = 1 << 17;

using Bytes = std::vector<std::uint8_t>;

// Returns false if the image does not fit.
bool ReorderThePlainWay(Bytes& buffer, const ImageFrame& frame) {
  using Wide = unsigned __int128;
  const Wide quarter = frame.full_pixels / 4;
  const Wide header_end = 3 * quarter + frame.image_pixels / 4 + 32;
  if (header_end > buffer.size() || Wide{frame.image_pixels} + 32 > buffer.size()) return false;
  Bytes work(frame.image_pixels + 32);
  for (std::size_t g = 0; g < frame.image_pixels / 64; ++g) {
    for (std::size_t k = 0; k < 4; ++k) {
      const std::size_t from = k * static_cast<std::size_t>(quarter) + 16 * g;
      // The header is behind the last plane, so the planes are in the buffer too.
      Require(from + 16 <= buffer.size(), "the planes lie in the buffer");
      memcpy(&work[64 * g + 16 * k], &buffer[from], 16);
    }
  }
  memcpy(&work[frame.image_pixels], &buffer[static_cast<std::size_t>(header_end) - 32], 32);
  memcpy(buffer.data(), work.data(), work.size());
  return true;
}

// Returns content that differs in every block.
Bytes Content(std::size_t size, std::uint32_t seed) {
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) {
    seed = seed * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(seed >> 24);
  }
  return bytes;
}

// Describes a frame as the image thread does, from the sensor's size and region. Some of the
// numbers exist on no sensor.
ImageFrame ConsumeFrame(FuzzedDataProvider& input, std::uint32_t& line) {
  if (input.ConsumeIntegral<std::uint8_t>() == 255) {
    line = input.ConsumeIntegral<std::uint32_t>();
    return {input.ConsumeIntegral<std::uint64_t>(), input.ConsumeIntegral<std::uint64_t>()};
  }
  const auto width = input.ConsumeIntegralInRange<std::uint64_t>(0, 1024);
  const auto height = input.ConsumeIntegralInRange<std::uint64_t>(0, 64);
  const auto roi_width = input.ConsumeIntegralInRange<std::uint64_t>(0, 1100);
  const auto roi_height = input.ConsumeIntegralInRange<std::uint64_t>(0, 70);
  line = static_cast<std::uint32_t>(width);
  return {width * height, roi_width * roi_height};
}

void ReorderBoth(FuzzedDataProvider& input, ReorderScratch& scratch) {
  std::uint32_t line;
  const ImageFrame frame = ConsumeFrame(input, line);
  std::uint64_t size = frame.full_pixels + line;
  if (size > kMaxBytes || input.ConsumeBool()) {
    size = input.ConsumeIntegralInRange<std::uint64_t>(0, kMaxBytes);
  }
  Bytes expected = Content(size, input.ConsumeIntegral<std::uint32_t>());
  const auto given = input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegral<std::uint8_t>());
  std::copy_n(given.begin(), std::min(given.size(), expected.size()), expected.begin());

  // A block of exactly this size.
  const auto buffer = std::make_unique<std::byte[]>(size);
  if (size > 0) memcpy(buffer.get(), expected.data(), size);
  const bool fits = ReorderThePlainWay(expected, frame);
  Require(ReorderImage(buffer.get(), size, frame, scratch) == fits, "what does not fit is refused");
  Require(size == 0 || memcmp(buffer.get(), expected.data(), size) == 0,
          "the same bytes, and those behind the header as they were");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  ReorderScratch scratch;
  ReorderBoth(input, scratch);
  ReorderBoth(input, scratch);
  return 0;
}
