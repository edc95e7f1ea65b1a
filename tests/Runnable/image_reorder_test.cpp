// Compares the in-place reorder of an image with the plain way, which gathers the image in a zeroed
// work area and copies it back.
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
  Bytes bytes(size + sizeof(std::uint64_t));
  for (std::size_t i = 0; i < size; i += sizeof(std::uint64_t)) {
    const std::uint64_t word = random();
    memcpy(&bytes[i], &word, sizeof word);
  }
  bytes.resize(size);
  return bytes;
}

// Without optimisation, the vectors' own operator takes a hundred times as long.
bool Equal(const Bytes& a, const Bytes& b) {
  return a.size() == b.size() && memcmp(a.data(), b.data(), a.size()) == 0;
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
  // A failure names the place, because the vectors have megabytes.
  if (Equal(buffer, expected)) return;
  const auto [got, wanted] = std::mismatch(buffer.begin(), buffer.end(), expected.begin());
  FAIL() << "first difference at byte " << got - buffer.begin();
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

// Every region of every small frame. Also frames of several chunks whose planes start at every
// distance from the chunk borders.
struct Frames {
  std::size_t first, last;  // pixels
  std::size_t smallest_region_of_last;
};

class EveryRegion : public testing::TestWithParam<Frames> {};

TEST_P(EveryRegion, DoesWhatThePlainWayDoes) {
  const auto [first, last, smallest] = GetParam();
  const Bytes noise = Noise(last + 32 + 256, 5);
  ReorderScratch scratch;
  Bytes buffer, expected;
  for (std::size_t full = first; full <= last; ++full) {
    // Some regions are larger than the frame, up to the end of the buffer.
    for (std::size_t region = smallest; region <= full + 64; ++region) {
      const ImageFrame frame{full, region};
      buffer.assign(noise.begin(), noise.begin() + full + 256);
      expected = buffer;
      ReorderThePlainWay(expected, frame);
      ASSERT_TRUE(ReorderImage(buffer.data(), buffer.size(), frame, scratch));
      ASSERT_TRUE(Equal(buffer, expected)) << region << " pixels of " << full;
    }
  }
}

constexpr std::size_t kChunk = ReorderScratch::kChunkBytes;

INSTANTIATE_TEST_SUITE_P(
    Frames, EveryRegion,
    testing::Values(Frames{0, 400, 0}, Frames{4 * kChunk - 1, 4 * kChunk + 1, kChunk - 66},
                    Frames{4 * kChunk + 64, 4 * kChunk + 64, 0},
                    Frames{6 * kChunk - 40, 6 * kChunk + 140, 6 * kChunk - 140},
                    Frames{13 * kChunk + 4 * 1365, 13 * kChunk + 4 * 1382, 13 * kChunk + 5300}));

TEST(ImageReorder, AgreesForARegionLargerThanTheFrame) {
  ReorderScratch scratch;
  for (std::size_t full = 20000; full < 60000; full += 997) {
    for (const std::size_t region : {full + full / 8, full + full / 5, full + full / 3}) {
      const ImageFrame frame{full, region};
      Bytes buffer = Noise(2 * full, static_cast<unsigned>(full));
      Bytes expected = buffer;
      ReorderThePlainWay(expected, frame);
      ASSERT_TRUE(ReorderImage(buffer.data(), buffer.size(), frame, scratch));
      ASSERT_TRUE(Equal(buffer, expected)) << region << " pixels of " << full;
    }
  }
}

TEST(ImageReorder, HoldsAQuarterOfTheFrameTwice) {
  const Size size{4096, 1080, 4096, 1080};
  Bytes buffer = Noise(size.Bytes(), 1);
  ReorderScratch scratch;
  std::size_t after_first = 0;
  for (int image = 0; image < 3; ++image) {
    ASSERT_TRUE(ReorderImage(buffer.data(), buffer.size(), size.Frame(), scratch));
    if (image == 0) after_first = scratch.Bytes();
  }
  EXPECT_EQ(scratch.Bytes(), after_first);
  EXPECT_GT(scratch.Bytes(), size.Bytes() / 5);
  EXPECT_LT(scratch.Bytes(), size.Bytes() * 27 / 100);
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
                                         Misfit{4096 + 31, {4096, 4096}},  // the header is cut off
                                         Misfit{4096 + 64, {4096, 4160}},  // more than the frame
                                         Misfit{4096,
                                                {1u << 20, 64}},  // the planes are too far apart
                                         Misfit{4096, {4096, ~0ull}}, Misfit{4096, {~0ull, 64}},
                                         Misfit{4096, {~0ull, ~0ull}}));

}  // namespace
