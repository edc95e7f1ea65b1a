// The walk over a buffer of packed strips, which is input from hardware. It must count complete
// strips exactly and must not trust values that point beyond the buffer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "Runnable/StripWalk.h"

namespace {

using ::testing::ElementsAre;
using VeltranoSDK::StripHeader;
using VeltranoSDK::StripWalk;
using VeltranoSDK::WalkStrips;

// Has exactly the size of its content, so that the address sanitizer finds any access beyond it.
class Buffer {
 public:
  void Append(const StripHeader& strip, std::size_t points_bytes) {
    const auto* bytes = reinterpret_cast<const std::byte*>(&strip);
    bytes_.insert(bytes_.end(), bytes, bytes + sizeof strip);
    bytes_.insert(bytes_.end(), points_bytes, std::byte{0xAB});
  }
  StripWalk Walk(std::uint32_t count, std::uint32_t bytes_per_point) {
    bytes_.shrink_to_fit();
    return WalkStrips(bytes_.data(), bytes_.size(), count, bytes_per_point);
  }
  std::size_t size() const { return bytes_.size(); }
  void CutOffLastByte() { bytes_.pop_back(); }

 private:
  std::vector<std::byte> bytes_;
};

constexpr StripHeader Strip(std::uint64_t frame_id, std::uint64_t points) {
  return {frame_id, 1000 + frame_id, 2000 + frame_id, points};
}

TEST(StripWalk, CountsHeadersAndPoints) {
  Buffer buffer;
  buffer.Append(Strip(7, 10), 40);
  buffer.Append(Strip(8, 20), 80);
  const StripWalk walk = buffer.Walk(2, 4);
  EXPECT_EQ(walk.strips, 2u);
  EXPECT_EQ(walk.bytes, 32u + 40 + 32 + 80);
  EXPECT_EQ(walk.last_frame_id, 8u);
  EXPECT_TRUE(walk.complete);
}

TEST(StripWalk, FindsNothingInAnUncompletedBuffer) {
  Buffer buffer;
  buffer.Append(Strip(7, 10), 80);
  const StripWalk walk = buffer.Walk(0, 8);
  EXPECT_EQ(walk.strips, 0u);
  EXPECT_EQ(walk.bytes, 0u);
  EXPECT_TRUE(walk.complete);
}

TEST(StripWalk, ReadsNoHeaderFromAnEmptyBuffer) {
  const StripWalk walk = WalkStrips(nullptr, 0, 3, 8);
  EXPECT_EQ(walk.strips, 0u);
  EXPECT_FALSE(walk.complete);
}

TEST(StripWalk, TakesHeadersFromEvenAddresses) {
  Buffer buffer;
  buffer.Append(Strip(1, 1), 2);
  buffer.Append(Strip(2, 3), 6);
  buffer.Append(Strip(3, 0), 0);
  const StripWalk walk = buffer.Walk(3, 2);
  EXPECT_EQ(walk.strips, 3u);
  EXPECT_EQ(walk.last_frame_id, 3u);
  EXPECT_EQ(walk.bytes, buffer.size());
}

TEST(StripWalk, StopsAtACountBeyondTheBuffer) {
  Buffer buffer;
  buffer.Append(Strip(1, 2), 16);
  const StripWalk walk = buffer.Walk(0xFFFFFFFF, 8);
  EXPECT_EQ(walk.strips, 1u);
  EXPECT_EQ(walk.bytes, 48u);
  EXPECT_FALSE(walk.complete);
}

TEST(StripWalk, StopsAtAHeaderThatIsCutOff) {
  Buffer buffer;
  buffer.Append(Strip(1, 2), 16);
  buffer.Append(Strip(2, 0), 0);
  buffer.CutOffLastByte();
  const StripWalk walk = buffer.Walk(2, 8);
  EXPECT_EQ(walk.strips, 1u);
  EXPECT_EQ(walk.last_frame_id, 1u);
  EXPECT_FALSE(walk.complete);
}

class PointCountBeyondTheBuffer : public testing::TestWithParam<std::uint64_t> {};

TEST_P(PointCountBeyondTheBuffer, EndsTheWalk) {
  Buffer buffer;
  buffer.Append(Strip(1, 4), 32);
  buffer.Append(Strip(2, GetParam()), 32);
  const StripWalk walk = buffer.Walk(2, 8);
  EXPECT_EQ(walk.strips, 1u);
  EXPECT_EQ(walk.bytes, 64u);
  EXPECT_EQ(walk.last_frame_id, 1u);
  EXPECT_FALSE(walk.complete);
}

// Some of these counts have a length in bytes that wraps around to a value that fits.
INSTANTIATE_TEST_SUITE_P(Counts, PointCountBeyondTheBuffer,
                         testing::Values(5, 1u << 20, 0x2000000000000000ull, 0x2000000000000004ull,
                                         0xFFFFFFFFFFFFFFFFull, 0x1FFFFFFFFFFFFFFCull));

TEST(StripWalk, TellsAVisitorOfEveryWholeStrip) {
  static std::vector<std::uint64_t> seen;
  std::vector<std::byte> buffer(4 * 32);
  for (std::uint64_t i = 0; i < 4; ++i) {
    const StripHeader strip = Strip(10 + i, i == 3 ? 1 : 0);  // the last one does not fit
    memcpy(buffer.data() + 32 * i, &strip, sizeof strip);
  }
  WalkStrips(buffer.data(), buffer.size(), 4, 8, [](unsigned int index, const StripHeader& strip) {
    EXPECT_EQ(strip.frame_id, 9 + index);
    EXPECT_EQ(strip.encoder_stamp, 2000 + strip.frame_id);
    seen.push_back(strip.frame_id);
  });
  EXPECT_THAT(seen, ElementsAre(10, 11, 12));
}

TEST(StripWalk, AgreesWithABufferItMadeItself) {
  std::mt19937 random(1);
  for (int round = 0; round < 2000; ++round) {
    const std::uint32_t bytes_per_point = std::array{2, 4, 8}[random() % 3];
    const std::uint32_t strips = random() % 20;
    const std::uint32_t broken = random() % 25;  // the strip with a wrong count, if it exists
    Buffer buffer;
    std::size_t whole_bytes = 0;
    for (std::uint32_t i = 0; i < strips; ++i) {
      const std::uint32_t points = random() % 50;
      if (i < broken) whole_bytes += 32 + std::size_t{points} * bytes_per_point;
      buffer.Append(Strip(i + 1, i == broken ? 1'000'000 + random() : points),
                    std::size_t{points} * bytes_per_point);
    }
    const StripWalk walk = buffer.Walk(strips, bytes_per_point);
    EXPECT_EQ(walk.strips, std::min(strips, broken));
    EXPECT_EQ(walk.bytes, whole_bytes);
    EXPECT_EQ(walk.last_frame_id, std::min(strips, broken));
    EXPECT_EQ(walk.complete, broken >= strips);
  }
}

TEST(StripWalk, SurvivesNoise) {
  std::mt19937 random(2);
  for (int round = 0; round < 5000; ++round) {
    std::vector<std::byte> buffer(random() % 300);
    for (std::byte& byte : buffer) byte = static_cast<std::byte>(random() % 4 == 0 ? random() : 0);
    const std::uint32_t bytes_per_point = random() % 9;
    const StripWalk walk = WalkStrips(buffer.data(), buffer.size(), random() % 12, bytes_per_point);
    EXPECT_LE(walk.bytes, buffer.size());
    EXPECT_GE(walk.bytes, walk.strips * 32);
  }
}

}  // namespace
