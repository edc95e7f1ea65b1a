// The field: from the places where a target was seen to the EEPROM's block and back.
#include "calibrate/Field.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "calibrate/CalibrationFile.h"
#include "support/Head.h"

namespace tessaline_test {
namespace {

using namespace tool::calibrate;
using State = FoundBlock::State;
using Bytes = std::vector<std::uint8_t>;

tessaline_calibration WithField(const std::vector<Sample>& places) {
  tessaline_calibration head = kHead;
  SetField(places, head);
  EXPECT_EQ(tessaline_calibration_check(&head), 0);
  return head;
}

bool Holds(const tessaline_calibration& head, double column, double row) {
  tessaline_measurement point{};
  EXPECT_EQ(tessaline_point_to_mm(&head, column, row, &point), 0);
  return !std::isnan(point.z_sigma);
}

std::vector<std::pair<int, int>> CornersOf(const tessaline_calibration& head) {
  std::vector<std::pair<int, int>> corners;
  for (std::uint32_t i = 0; i < head.field_corners; ++i) {
    corners.emplace_back(head.field[i].column, head.field[i].row);
  }
  return corners;
}

// --- The hull ------------------------------------------------------------------------------

TEST(FieldOf, SomePlacesIsTheirHull) {
  const auto head = WithField(
      {{500, 300}, {100, 200}, {900, 200}, {500, 200}, {900, 700}, {100, 700}, {400, 500}});
  EXPECT_THAT(CornersOf(head),
              testing::UnorderedElementsAre(std::pair(100, 200), std::pair(900, 200),
                                            std::pair(900, 700), std::pair(100, 700)));
}

// The bent lines of two views above and below, as a lens shows them.
TEST(FieldOf, BentLinesHoldsThem) {
  std::vector<Sample> places;
  for (int column = 0; column < 1456; ++column) {
    const double away = (column - 728) / 728.0;
    places.push_back({column + 0.0, 200 + 3 * away * away});
    places.push_back({column + 0.0, 800 - 3 * away * away});
  }
  const auto head = WithField(places);
  double held = 0;
  for (const Sample& place : places) {
    held += Holds(head, place.column, place.row);
    const double out = place.row < 500 ? -2 : 2;
    ASSERT_FALSE(Holds(head, place.column, place.row + out)) << place.column;
  }
  EXPECT_GT(held / static_cast<double>(places.size()), 0.99);
}

// Eight corners are too few for a circle: what is left out lies at the edge.
TEST(FieldOf, ACircleGrowsByRoundingOnly) {
  constexpr double kRadius = 400.3;
  std::vector<Sample> round;
  for (int i = 0; i < 360; ++i) {
    const double angle = i * std::numbers::pi / 180;
    round.push_back({700.4 + kRadius * std::cos(angle), 500.6 + kRadius * std::sin(angle)});
  }
  const auto head = WithField(round);
  EXPECT_EQ(head.field_corners, 8u);
  for (const auto& [column, row] : CornersOf(head)) {
    EXPECT_NEAR(std::hypot(column - 700.4, row - 500.6), kRadius, 2);
  }
  for (int i = 0; i < 360; ++i) {
    const double angle = i * std::numbers::pi / 180;
    const auto holds = [&](double radius) {
      return Holds(head, 700.4 + radius * std::cos(angle), 500.6 + radius * std::sin(angle));
    };
    EXPECT_FALSE(holds(kRadius + 2)) << i;
    EXPECT_TRUE(holds(0.7 * kRadius)) << i;
  }
}

TEST(FieldOf, PlacesAtTheSensorsEdgeStaysOnTheSensor) {
  const auto head = WithField({{0, 0}, {1455, 0.3}, {1455, 1087.8}, {0, 1087.9}});
  EXPECT_TRUE(Holds(head, 1455, 1087));
  EXPECT_EQ(head.field_corners, 4u);
}

TEST(FieldOf, NoAreaIsUnknown) {
  EXPECT_EQ(WithField({{1, 1}, {500, 500}}).field_corners, 0u);
  EXPECT_EQ(WithField({{1, 1}, {5, 5}, {500, 500}}).field_corners, 0u);
  EXPECT_EQ(FieldInWords(kHead), "unknown");
  EXPECT_TRUE(FieldCorners(kHead).is_null());
}

TEST(FieldOf, AHeadIsToldInPixelsAndMillimetres) {
  tessaline_calibration plain = kHead;
  std::fill(plain.distortion, plain.distortion + 3, 0.0);
  std::fill(plain.plane, plain.plane + 9, 0.0);
  plain.centre_column = 728;
  plain.centre_row = 544;
  plain.plane[0] = 36.4;
  plain.plane[4] = -36.4;
  plain.plane[8] = 1;
  SetField({{128, 144}, {928, 144}, {928, 744}, {128, 744}}, plain);
  EXPECT_EQ(FieldInWords(plain),
            "columns 128 to 928, rows 144 to 744: x -30.0 to 10.0 mm, z -10.0 to 20.0 mm");
  EXPECT_EQ(FieldRange(plain)["columns"].dump(), "[128,928]");
}

// --- The block -----------------------------------------------------------------------------

constexpr std::size_t kUsed = 246;  // bytes of the block; zeros follow

StoredCalibration SomeHead() {
  return {WithField({{10, 200}, {700, 150}, {1440, 210}, {1400, 900}, {50, 800}}), "K3610"};
}

void Check(Bytes& block, std::size_t size) {
  const auto check =
      static_cast<std::uint32_t>(crc32(0, block.data(), static_cast<uInt>(size - 4)));
  std::memcpy(block.data() + size - 4, &check, sizeof check);
}

TEST(Block, KeepsAHeadWithItsField) {
  const StoredCalibration head = SomeHead();
  ASSERT_GE(head.numbers.field_corners, 5u);
  const Bytes block = ToBlock(head);
  ASSERT_EQ(block.size(), kBlockBytes);
  const FoundBlock found = FromBlock(block);
  ASSERT_EQ(found.state, State::kSound);
  EXPECT_EQ(ToJson(found.stored), ToJson(head));
  EXPECT_EQ(found.stored.model, "K3610");
}

// As it was written before there was a field: mark, version 1, 168, 21 numbers, 32 letters, CRC.
Bytes OldBlock() {
  Bytes block(kBlockBytes, 0xFF);
  const std::uint8_t head[]{'T', 'C', 'A', 'L', 1, 0, 168, 0};
  std::copy(std::begin(head), std::end(head), block.begin());
  std::memcpy(block.data() + 8, &kHead, 168);
  std::memset(block.data() + 176, 0, 32);
  std::memcpy(block.data() + 176, "K3710", 5);
  Check(block, 212);
  return block;
}

TEST(Block, OfVersion1HasNoField) {
  const FoundBlock found = FromBlock(OldBlock());
  ASSERT_EQ(found.state, State::kSound);
  EXPECT_EQ(found.stored.model, "K3710");
  EXPECT_EQ(found.stored.numbers.field_corners, 0u);
  EXPECT_EQ(ToJson(found.stored), ToJson({kHead, "K3710"}));
}

// The mark's bits too: what the check sum proves to be a block is one.
TEST(Block, WithAnyWrongBitIsDamaged) {
  for (const auto& [good, used] :
       {std::pair(ToBlock(SomeHead()), kUsed), std::pair(OldBlock(), std::size_t{212})}) {
    for (std::size_t bit = 0; bit < 8 * used; ++bit) {
      Bytes block = good;
      block[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
      ASSERT_EQ(FromBlock(block).state, State::kDamaged) << "bit " << bit;
    }
  }
}

TEST(Block, WithNumbersThatNoHeadHasIsDamaged) {
  StoredCalibration head = SomeHead();
  head.numbers.pixels_per_unit = 0;
  EXPECT_EQ(FromBlock(ToBlock(head)).state, State::kDamaged);
}

TEST(Block, OfANewerVersionIsNotDamaged) {
  for (const std::uint16_t bytes : {std::uint16_t{100}, std::uint16_t{kUsed}, std::uint16_t{256}}) {
    Bytes block = ToBlock(SomeHead());
    block[4] = 3;
    std::memcpy(block.data() + 6, &bytes, sizeof bytes);
    Check(block, bytes);
    const FoundBlock found = FromBlock(block);
    EXPECT_EQ(found.state, State::kNewer) << bytes;
    EXPECT_THAT(Complaint(found), testing::HasSubstr("newer version, 3"));
    block[50] ^= 1;
    EXPECT_EQ(FromBlock(block).state, State::kDamaged) << bytes;
    block[50] ^= 1;
    block[0] ^= 1;
    EXPECT_EQ(FromBlock(block).state, State::kDamaged) << bytes;
  }
}

TEST(Block, IsNotSomethingElse) {
  EXPECT_EQ(FromBlock(Bytes(kBlockBytes, 0xFF)).state, State::kNone);
  EXPECT_EQ(FromBlock(Bytes(kBlockBytes, 0)).state, State::kNone);
  EXPECT_EQ(FromBlock(Bytes(100, 7)).state, State::kNone);
  Bytes wrong_mark_and_number = ToBlock(SomeHead());
  wrong_mark_and_number[0] ^= 1;
  wrong_mark_and_number[90] ^= 1;
  EXPECT_EQ(FromBlock(wrong_mark_and_number).state, State::kNone);
}

}  // namespace
}  // namespace tessaline_test
