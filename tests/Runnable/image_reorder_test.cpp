// The in-place reorder of an image against the plain way of doing it: gather into
// a zeroed work area, copy the result back.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "Runnable/ImageReorder.h"

namespace {

using VeltranoSDK::ImageFrame;
using VeltranoSDK::ReorderImage;
using VeltranoSDK::ReorderScratch;

using Bytes = std::vector<std::byte>;

Bytes Noise(std::size_t size, unsigned seed) {
  std::mt19937_64 random(seed);
  Bytes bytes(size);
  for (std::byte& byte : bytes) byte = static_cast<std::byte>(random());
  return bytes;
}

void ReorderThePlainWay(Bytes& buffer, const ImageFrame& frame) {
  const std::size_t quarter = frame.full_pixels / 4;
  Bytes work(frame.image_pixels + 32);
  for (std::size_t g = 0; g < frame.image_pixels / 64; ++g) {
    for (std::size_t k = 0; k < 4; ++k) {
      memcpy(&work[64 * g + 16 * k], &buffer[k * quarter + 16 * g], 16);
    }
  }
  memcpy(&work[frame.image_pixels], &buffer[3 * quarter + frame.image_pixels / 4], 32);
  memcpy(buffer.data(), work.data(), work.size());
}

struct Size {
  unsigned width, height, roi_width, roi_height;

  ImageFrame Frame() const {
    return {std::uint64_t{width} * height, std::uint64_t{roi_width} * roi_height};
  }
  std::size_t Bytes() const { return std::size_t{width} * (height + 1); }
};

void PrintTo(const Size& size, std::ostream* out) {
  *out << size.roi_width << 'x' << size.roi_height << " of " << size.width << 'x' << size.height;
}

void ExpectTheSame(const Size& size, unsigned seed, ReorderScratch& scratch) {
  SCOPED_TRACE(testing::PrintToString(size));
  Bytes buffer = Noise(size.Bytes(), seed);
  Bytes expected = buffer;
  ReorderThePlainWay(expected, size.Frame());
  ASSERT_TRUE(ReorderImage(buffer.data(), buffer.size(), size.Frame(), scratch));
  // Not one comparison of vectors: a failure would print megabytes.
  const auto [got, wanted] = std::mismatch(buffer.begin(), buffer.end(), expected.begin());
  EXPECT_TRUE(got == buffer.end()) << "first difference at byte " << got - buffer.begin();
}

class ImageReorder : public testing::TestWithParam<Size> {};

TEST_P(ImageReorder, DoesWhatThePlainWayDoes) {
  ReorderScratch scratch;
  for (unsigned seed = 0; seed < 3; ++seed) ExpectTheSame(GetParam(), seed, scratch);
}

INSTANTIATE_TEST_SUITE_P(Sensors, ImageReorder,
                         testing::Values(Size{1456, 1088, 1456, 1088}, Size{1456, 1088, 728, 544},
                                         Size{2064, 1544, 2064, 1544}, Size{4200, 1024, 4200, 1024},
                                         Size{4096, 1080, 4096, 1080}, Size{2048, 1152, 2048, 1152},
                                         Size{2048, 1088, 2048, 1088}));

INSTANTIATE_TEST_SUITE_P(Regions, ImageReorder,
                         testing::Values(Size{2048, 1088, 2048, 16}, Size{2048, 1088, 100, 3},
                                         Size{2048, 1088, 7, 9}, Size{2048, 1088, 8, 8},
                                         Size{2048, 1088, 0, 0}, Size{2048, 1088, 2048, 0},
                                         Size{2048, 1088, 2047, 1087}, Size{65, 66, 65, 66},
                                         Size{64, 1, 32, 1}, Size{1456, 1088, 1457, 1088}));

TEST(ImageReorder, TakesBlockFiveFromTheSecondPlane) {
  const Size size{2048, 1088, 2048, 1088};
  const std::size_t quarter = 2048 * 1088 / 4;
  Bytes buffer(size.Bytes());
  memset(&buffer[quarter + 16], 0x5A, 16);
  ReorderScratch scratch;
  ASSERT_TRUE(ReorderImage(buffer.data(), buffer.size(), size.Frame(), scratch));
  EXPECT_EQ(buffer[79], std::byte{0});
  for (std::size_t i = 80; i < 96; ++i) EXPECT_EQ(buffer[i], std::byte{0x5A}) << i;
  EXPECT_EQ(buffer[96], std::byte{0});
}

TEST(ImageReorder, AgreesForAnySizeWithOneScratch) {
  std::mt19937 random(3);
  ReorderScratch scratch;
  for (unsigned round = 0; round < 400; ++round) {
    Size size{32 + static_cast<unsigned>(random() % 400), 1 + static_cast<unsigned>(random() % 200),
              0, 0};
    size.roi_width = random() % (size.width + 1);
    size.roi_height = random() % (size.height + 1);
    ExpectTheSame(size, round, scratch);
  }
}

struct Misfit {
  std::size_t buffer_bytes;
  ImageFrame frame;
};

class ImageReorderMisfit : public testing::TestWithParam<Misfit> {};

TEST_P(ImageReorderMisfit, IsRefusedAndLeavesTheBufferAlone) {
  Bytes buffer = Noise(GetParam().buffer_bytes, 1);
  const Bytes before = buffer;
  ReorderScratch scratch;
  EXPECT_FALSE(ReorderImage(buffer.data(), buffer.size(), GetParam().frame, scratch));
  EXPECT_TRUE(buffer == before);
}

INSTANTIATE_TEST_SUITE_P(Misfits, ImageReorderMisfit,
                         testing::Values(Misfit{0, {0, 0}}, Misfit{31, {0, 0}},
                                         Misfit{4096 + 31, {4096, 4096}},  // header cut off
                                         Misfit{4096 + 64, {4096, 4160}},  // more than the frame
                                         Misfit{4096, {1u << 20, 64}},     // planes too far apart
                                         Misfit{4096, {4096, ~0ull}}, Misfit{4096, {~0ull, 64}},
                                         Misfit{4096, {~0ull, ~0ull}}));

}  // namespace
