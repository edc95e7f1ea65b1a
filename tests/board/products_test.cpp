// The product table, number by number. Library, virtual board, command and examples all read it, so
// none of them would detect a wrong number.
#include "tessaline/products.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string_view>

namespace VeltranoSDK::products {
namespace {

using ::testing::ElementsAre;

// --- Families ----------------------------------------------------------------------------

void ExpectZynq(const Board& board) {
  EXPECT_EQ(board.processor.name, "Zynq-7000");
  EXPECT_EQ(board.processor.regions.image, 0x43C00000u);
  EXPECT_EQ(board.processor.regions.rebuild, 0x83C00000u);
  const auto& [file, gain, steps, offset] = board.processor.thermometer;
  EXPECT_STREQ(file, "/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw");
  EXPECT_EQ(gain, 503.975);
  EXPECT_EQ(steps, 4096);
  EXPECT_EQ(offset, -273.15);
}

void ExpectBus(const Bus& bus, std::string_view path, unsigned number) {
  EXPECT_EQ(bus.path, path);
  EXPECT_EQ(bus.number, number);
}

// Series 21 and 22.
void ExpectI2cSensorBoard(const Board& board) {
  ExpectZynq(board);
  ExpectBus(board.sensor_bus, "/dev/i2c-0", 0);
  ExpectBus(board.laser_bus, "/dev/i2c-1", 1);
  EXPECT_THAT(board.gpio.All(), ElementsAre(907, 934, 961, 962, 963, 969));
}

// Series 23 and 24.
void ExpectSpiSensorBoard(const Board& board) {
  ExpectZynq(board);
  ExpectBus(board.sensor_bus, "/dev/spidev1.0", 1);
  ExpectBus(board.laser_bus, "/dev/i2c-0", 0);
  EXPECT_THAT(board.gpio.All(), ElementsAre(921, 934, 965, 964, 966, 969));
}

void ExpectSensor(const ImageSensor& sensor, std::string_view name, unsigned width, unsigned height,
                  StripSize strips, unsigned trigger_spacing, bool has_thermometer) {
  EXPECT_EQ(sensor.name, name);
  EXPECT_EQ(sensor.width, width);
  EXPECT_EQ(sensor.height, height);
  EXPECT_EQ(sensor.strips.width, strips.width);
  EXPECT_EQ(sensor.strips.height, strips.height);
  EXPECT_EQ(sensor.trigger_spacing, trigger_spacing);
  EXPECT_EQ(sensor.has_thermometer, has_thermometer);
}

void ExpectFamily(const Family& family, std::string_view prefix, unsigned series,
                  std::string_view laser_power_chip, bool timing_in_halves, bool has_dma_buffer) {
  EXPECT_EQ(family.prefix, prefix);
  EXPECT_EQ(family.series, series);
  EXPECT_EQ(family.laser_power_chip, laser_power_chip);
  EXPECT_EQ(family.timing_in_halves, timing_in_halves);
  EXPECT_EQ(family.has_dma_buffer, has_dma_buffer);
}

TEST(Families, AreFive) { EXPECT_EQ(kFamilies.size(), 5u); }

TEST(Families, K36) {
  const Family& family = kFamilies[0];
  ExpectFamily(family, "K36", 21, "AD5175", false, false);
  ExpectI2cSensorBoard(family.board);
  ExpectSensor(family.sensor, "IMX273", 1456, 1088, {1024, 640}, 4000, true);
  EXPECT_EQ(family.codes, "K3610 K3620 K3630 K3640 K3650 K3660");
}

TEST(Families, K37) {
  const Family& family = kFamilies[1];
  ExpectFamily(family, "K37", 22, "AD5175", false, false);
  ExpectI2cSensorBoard(family.board);
  ExpectSensor(family.sensor, "IMX252", 2064, 1544, {1024, 640}, 8000, true);
  EXPECT_EQ(family.codes,
            "K3710 K3720 K3730 K3740 K3710ch16 K3720ch16 K3730ch16 K3740ch16 "
            "K3710ch16arm_rebuild K3720ch16arm_rebuild K3730ch16arm_rebuild "
            "K3740ch16arm_rebuild");
}

TEST(Families, K38) {
  const Family& family = kFamilies[2];
  ExpectFamily(family, "K38", 23, "AD5175", true, false);
  ExpectSpiSensorBoard(family.board);
  ExpectSensor(family.sensor, "GMAX2509", 4200, 2048, {2048, 640}, 5000, true);
  EXPECT_EQ(family.codes, "K3810 K3820 K3830 K3840 K3850 K3860");
}

TEST(Families, K39) {
  const Family& family = kFamilies[3];
  ExpectFamily(family, "K39", 24, "TPL0401B", true, true);
  ExpectSpiSensorBoard(family.board);
  ExpectSensor(family.sensor, "GSPRINT6502BSI", 2048, 1152, {1024, 640}, 4000, true);
  EXPECT_EQ(family.codes, "K3910 K3920 K3910arm_rebuild K3920arm_rebuild");
}

TEST(Families, K40) {
  const Family& family = kFamilies[4];
  ExpectFamily(family, "K40", 25, "TPL0401B", true, true);
  EXPECT_EQ(family.board.processor.name, "Zynq UltraScale+");
  EXPECT_EQ(family.board.processor.regions.image, 0xA0000000u);
  EXPECT_EQ(family.board.processor.regions.rebuild, 0xB0000000u);
  const auto& [file, gain, steps, offset] = family.board.processor.thermometer;
  EXPECT_STREQ(file, "/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw");
  EXPECT_EQ(gain, 509.314);
  EXPECT_EQ(steps, 65536);
  EXPECT_EQ(offset, -280.23);
  ExpectBus(family.board.sensor_bus, "/dev/spidev0.0", 0);
  ExpectBus(family.board.laser_bus, "/dev/i2c-0", 0);
  EXPECT_THAT(family.board.gpio.All(), ElementsAre(363, 364, 417, 416, 418, 0));
  ExpectSensor(family.sensor, "e2v Flash 4K", 4096, 1080, {8192, 2048}, 4000, false);
  EXPECT_EQ(family.codes,
            "K4010 K4020 K4030 K4040 K4010arm_rebuild K4020arm_rebuild K4030arm_rebuild "
            "K4040arm_rebuild");
}

// --- Products ----------------------------------------------------------------------------

struct Kind {
  std::size_t index;  // the library's number of the series
  const char* code;
  const char* prefix;
  unsigned height;
  PointLayout points;
  unsigned point_bytes;
  const char* remark;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.code; }

class Kinds : public ::testing::TestWithParam<Kind> {};

TEST_P(Kinds, StandInTheirOrder) {
  const Product* const product = FindProduct(GetParam().code);
  ASSERT_EQ(product, &kProducts[GetParam().index]);
  EXPECT_EQ(product->family.prefix, GetParam().prefix);
  EXPECT_EQ(product->Height(), GetParam().height);
  EXPECT_EQ(product->points, GetParam().points);
  EXPECT_EQ(product->PointBytes(), GetParam().point_bytes);
  EXPECT_EQ(product->remark, GetParam().remark);
}

INSTANTIATE_TEST_SUITE_P(
    Products, Kinds,
    ::testing::Values(Kind{0, "K3610", "K36", 1088, PointLayout::kFull, 8, ""},
                      Kind{1, "K3710", "K37", 1544, PointLayout::kFull, 8, ""},
                      Kind{2, "K3710ch16", "K37", 1544, PointLayout::kFull, 8, "16 channels"},
                      Kind{3, "K3710ch16arm_rebuild", "K37", 1544, PointLayout::kShort, 2,
                           "16 channels, points made by the processor"},
                      Kind{4, "K3820", "K38", 2048, PointLayout::kFull, 8, ""},
                      Kind{5, "K3810", "K38", 1024, PointLayout::kFull, 8, "half the rows"},
                      Kind{6, "K3920", "K39", 1152, PointLayout::kFull, 8, ""},
                      Kind{7, "K3920arm_rebuild", "K39", 1152, PointLayout::kByMode, 2,
                           "points made by the processor"},
                      Kind{8, "K4010", "K40", 1080, PointLayout::kFull, 8, ""},
                      Kind{9, "K4010arm_rebuild", "K40", 1080, PointLayout::kByMode, 2,
                           "points made by the processor"}));

TEST(Products, AreTen) { EXPECT_EQ(kProducts.size(), 10u); }

TEST(Products, OfCodesThatMeanNothingMore) {
  EXPECT_EQ(FindProduct("K3710arm_rebuild"), &kProducts[1]);
  EXPECT_EQ(FindProduct("K3810arm_rebuild"), &kProducts[4]);
  EXPECT_EQ(FindProduct("K3610ch16arm_rebuild"), &kProducts[0]);
  EXPECT_EQ(FindProduct("K39ch16"), &kProducts[6]);
}

TEST(Products, OfNobody) {
  for (const char* code : {"", "K3", "K35", "k3610", " K3610"}) {
    EXPECT_EQ(FindProduct(code), nullptr) << code;
  }
}

}  // namespace
}  // namespace VeltranoSDK::products
