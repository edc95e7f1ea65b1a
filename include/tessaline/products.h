/**
 * @file
 * The products as data: boards, image sensors, product families, and what the
 * model codes of a family mean. C++20.
 *
 * The library, the virtual board, the command and the examples all read this one
 * table, so a product has the same lines, buses and strips everywhere.
 */
#ifndef TESSALINE_PRODUCTS_H
#define TESSALINE_PRODUCTS_H

#include <array>
#include <cstdint>
#include <string_view>

#include "tessaline/register_map.h"

namespace VeltranoSDK::products {

/** The processor's thermometer: degrees Celsius are raw x gain / steps + offset. */
struct Thermometer {
  const char* file; /**< where the kernel shows the raw value */
  double gain;      /**< degrees over the whole scale */
  double steps;     /**< steps of the scale, a power of two */
  double offset;    /**< degrees at a raw value of 0 */
};

/** A processor with its programmable logic. */
struct Processor {
  std::string_view name;     /**< the maker's */
  fpga::RegionBases regions; /**< where the FPGA's registers are */
  Thermometer thermometer;   /**< its own temperature */
};
/** Series 21 to 24. */
inline constexpr Processor kZynq{
    "Zynq-7000",
    fpga::kZynqRegions,
    {"/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw", 503.975, 4096, -273.15}};
/** Series 25. */
inline constexpr Processor kZynqMp{
    "Zynq UltraScale+",
    fpga::kZynqMpRegions,
    {"/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw", 509.314, 65536, -280.23}};

/** A bus of the board; on SPI its first chip select. */
struct Bus {
  std::string_view path; /**< its device node */
  unsigned number;       /**< the number of the bus */
};
inline constexpr Bus kI2c0{"/dev/i2c-0", 0};     /**< has the EEPROM on every board */
inline constexpr Bus kI2c1{"/dev/i2c-1", 1};     /**< the second I2C bus */
inline constexpr Bus kSpi0{"/dev/spidev0.0", 0}; /**< the first SPI bus */
inline constexpr Bus kSpi1{"/dev/spidev1.0", 1}; /**< the second SPI bus */

/** The board's output lines, by their numbers in sysfs. */
struct GpioLines {
  unsigned laser1;    /**< the laser is on when both of its lines are */
  unsigned laser2;    /**< the other one */
  unsigned red;       /**< of the status light */
  unsigned green;     /**< of the status light */
  unsigned blue;      /**< of the status light */
  unsigned laser_led; /**< shows that the laser is on */

  /** In the order in which they stand above. */
  constexpr std::array<unsigned, 6> All() const {
    return {laser1, laser2, red, green, blue, laser_led};
  }
};

/** How a board is wired. */
struct Board {
  const Processor& processor; /**< what runs the library */
  const Bus& sensor_bus;      /**< of the image sensor */
  const Bus& laser_bus;       /**< of potentiometer and DA converter */
  GpioLines gpio;             /**< its output lines */
};
/** Series 21 and 22. */
inline constexpr Board kZynqI2cSensorBoard{kZynq, kI2c0, kI2c1, {907, 934, 961, 962, 963, 969}};
/** Series 23 and 24. */
inline constexpr Board kZynqSpiSensorBoard{kZynq, kSpi1, kI2c0, {921, 934, 965, 964, 966, 969}};
/** Series 25. */
inline constexpr Board kZynqMpBoard{kZynqMp, kSpi0, kI2c0, {363, 364, 417, 416, 418, 0}};

/** Width x height bytes: a buffer of the strip device. */
struct StripSize {
  unsigned width;  /**< see GetStripWidth() */
  unsigned height; /**< see GetStripHeight() */

  /** See GetStripBufferSize(). */
  constexpr unsigned Bytes() const { return width * height; }
};
/** What most sensors have. */
inline constexpr StripSize kUsualStrips{1024, 640};

/** An image sensor. */
struct ImageSensor {
  std::string_view name;    /**< the maker's */
  unsigned width;           /**< pixels of a row */
  unsigned height;          /**< rows */
  StripSize strips;         /**< buffers for the strips made of its images */
  unsigned trigger_spacing; /**< microseconds between triggers that suit all of its rows */
  bool has_thermometer;     /**< whether GetSensorTemp() can tell anything */
};
inline constexpr ImageSensor kImx273{"IMX273", 1456, 1088, kUsualStrips, 4000, true}; /**< of K36 */
inline constexpr ImageSensor kImx252{"IMX252", 2064, 1544, kUsualStrips, 8000, true}; /**< of K37 */
inline constexpr ImageSensor kGmax2509{"GMAX2509",  4200, 2048,
                                       {2048, 640}, 5000, true}; /**< of K38 */
inline constexpr ImageSensor kGsprint6502{"GSPRINT6502BSI", 2048, 1152,
                                          kUsualStrips,     4000, true}; /**< of K39 */
inline constexpr ImageSensor kE2vFlash4k{"e2v Flash 4K", 4096, 1080,
                                         {8192, 2048},   4000, false}; /**< of K40 */

inline constexpr std::string_view kAd5175 = "AD5175";    /**< sets the laser's power */
inline constexpr std::string_view kTpl0401 = "TPL0401B"; /**< likewise, on newer boards */

/** What the products of a family have in common. */
struct Family {
  std::string_view prefix;           /**< the first characters of their model codes */
  std::string_view codes;            /**< of the products that are made, a blank between */
  unsigned series;                   /**< as the register FPGA_VERSION has it */
  const Board& board;                /**< what it is built on */
  const ImageSensor& sensor;         /**< what it sees with */
  std::string_view laser_power_chip; /**< kAd5175 or kTpl0401 */
  bool timing_in_halves; /**< SENSOR_TIMING is kField.t_ges_halves and kField.t_row_halves, else
                            kField.t_ges and kField.t_row */
  bool has_dma_buffer;   /**< frames are captured into /dev/udmabuf0 */
};

/** In the order of their series. */
inline constexpr std::array kFamilies{
    Family{.prefix = "K36",
           .codes = "K3610 K3620 K3630 K3640 K3650 K3660",
           .series = 21,
           .board = kZynqI2cSensorBoard,
           .sensor = kImx273,
           .laser_power_chip = kAd5175,
           .timing_in_halves = false,
           .has_dma_buffer = false},
    Family{.prefix = "K37",
           .codes = "K3710 K3720 K3730 K3740 K3710ch16 K3720ch16 K3730ch16 K3740ch16 "
                    "K3710ch16arm_rebuild K3720ch16arm_rebuild K3730ch16arm_rebuild "
                    "K3740ch16arm_rebuild",
           .series = 22,
           .board = kZynqI2cSensorBoard,
           .sensor = kImx252,
           .laser_power_chip = kAd5175,
           .timing_in_halves = false,
           .has_dma_buffer = false},
    Family{.prefix = "K38",
           .codes = "K3810 K3820 K3830 K3840 K3850 K3860",
           .series = 23,
           .board = kZynqSpiSensorBoard,
           .sensor = kGmax2509,
           .laser_power_chip = kAd5175,
           .timing_in_halves = true,
           .has_dma_buffer = false},
    Family{.prefix = "K39",
           .codes = "K3910 K3920 K3910arm_rebuild K3920arm_rebuild",
           .series = 24,
           .board = kZynqSpiSensorBoard,
           .sensor = kGsprint6502,
           .laser_power_chip = kTpl0401,
           .timing_in_halves = true,
           .has_dma_buffer = true},
    Family{.prefix = "K40",
           .codes = "K4010 K4020 K4030 K4040 K4010arm_rebuild K4020arm_rebuild "
                    "K4030arm_rebuild K4040arm_rebuild",
           .series = 25,
           .board = kZynqMpBoard,
           .sensor = kE2vFlash4k,
           .laser_power_chip = kTpl0401,
           .timing_in_halves = true,
           .has_dma_buffer = true},
};

/** How strips carry their points. */
enum class PointLayout : std::uint8_t {
  kFull,  /**< 8 bytes */
  kShort, /**< 2 bytes: the processor makes the points, and needs the row only */
  kByMode /**< 2 bytes; 4 with brightness, 8 in continuous output */
};

/** What a model code means within its family. */
struct Product {
  const Family& family;                          /**< the family of that prefix */
  std::array<std::string_view, 2> words{"", ""}; /**< words in the code, in any order; "": none */
  std::string_view whole_code{};                 /**< if not "", the only code of this kind */
  unsigned row_step = 1;                   /**< 2: only every other row of the sensor is used */
  PointLayout points = PointLayout::kFull; /**< see PointLayout */
  std::string_view remark{};               /**< the difference from the rest of its family */

  /** Whether a model code is one of this kind. */
  constexpr bool Is(std::string_view code) const {
    return code.starts_with(family.prefix) && (whole_code.empty() || code == whole_code) &&
           code.find(words[0]) != code.npos && code.find(words[1]) != code.npos;
  }
  /** Rows that its images can have. */
  constexpr unsigned Height() const { return family.sensor.height / row_step; }
  /** Size of a point after a start. */
  constexpr unsigned PointBytes() const { return points == PointLayout::kFull ? 8 : 2; }
};

/**
 * The kinds of products, indexed by the library's number for a series. Of several
 * that fit a model code the last one counts, so a family's usual kind comes first.
 *
 * "arm_rebuild" has a meaning with K39.. and K40.., and with K37.. together with
 * "ch16"; elsewhere it is ignored. "K3810" is a kind by itself only as the whole
 * code: "K3810arm_rebuild" is a usual K38...
 */
inline constexpr std::array kProducts{
    Product{.family = kFamilies[0]},
    Product{.family = kFamilies[1]},
    Product{.family = kFamilies[1], .words = {"ch16", ""}, .remark = "16 channels"},
    Product{.family = kFamilies[1],
            .words = {"ch16", "arm_rebuild"},
            .points = PointLayout::kShort,
            .remark = "16 channels, points made by the processor"},
    Product{.family = kFamilies[2]},
    Product{
        .family = kFamilies[2], .whole_code = "K3810", .row_step = 2, .remark = "half the rows"},
    Product{.family = kFamilies[3]},
    Product{.family = kFamilies[3],
            .words = {"arm_rebuild", ""},
            .points = PointLayout::kByMode,
            .remark = "points made by the processor"},
    Product{.family = kFamilies[4]},
    Product{.family = kFamilies[4],
            .words = {"arm_rebuild", ""},
            .points = PointLayout::kByMode,
            .remark = "points made by the processor"},
};

/** The product of a model code; null when its first characters are those of none. */
constexpr const Product* FindProduct(std::string_view code) {
  const Product* found = nullptr;
  for (const Product& product : kProducts) {
    if (product.Is(code)) found = &product;
  }
  return found;
}

}  // namespace VeltranoSDK::products

#endif
