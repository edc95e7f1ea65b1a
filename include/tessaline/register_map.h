/**
 * @file
 * The FPGA's register map as data: every block, register and field that software uses,
 * by name. C++20.
 *
 * The library's register methods, the virtual board and the register tools all read this
 * one table, so a register has the same name everywhere.
 */
#ifndef TESSALINE_REGISTER_MAP_H
#define TESSALINE_REGISTER_MAP_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace VeltranoSDK::fpga {

/** The 64 KiB register blocks, in the order in which their bases are kept. */
enum class Block : std::uint8_t {
  kImage0,
  kImage1,
  kImage2,
  kImage3,
  kImage4,
  kRebuild0,
  kRebuild1,
  kRebuild2,
  kRebuild4,
  kRebuild5,
  kRebuild6,
  kRebuild6B, /**< a second name of kRebuild6: same offset */
};

/** Number of names in Block. */
inline constexpr std::size_t kBlockCount = 12;
/** Size of a block's address range. */
inline constexpr std::uint32_t kBlockBytes = 0x10000;

/** Name and place of a block. */
struct BlockInfo {
  std::string_view name; /**< as the virtual board's transcript has it */
  bool in_image_region;  /**< else in the rebuild region */
  std::uint32_t offset;  /**< from the region's base */
};

/** Indexed by Block. There is no block at rebuild base + 0x30000. */
inline constexpr std::array<BlockInfo, kBlockCount> kBlocks{{
    {"IMAGE_BLOCK_0", true, 0x00000},
    {"IMAGE_BLOCK_1", true, 0x10000},
    {"IMAGE_BLOCK_2", true, 0x20000},
    {"IMAGE_BLOCK_3", true, 0x30000},
    {"IMAGE_BLOCK_4", true, 0x40000},
    {"REBUILD_BLOCK_0", false, 0x00000},
    {"REBUILD_BLOCK_1", false, 0x10000},
    {"REBUILD_BLOCK_2", false, 0x20000},
    {"REBUILD_BLOCK_4", false, 0x40000},
    {"REBUILD_BLOCK_5", false, 0x50000},
    {"REBUILD_BLOCK_6", false, 0x60000},
    {"REBUILD_BLOCK_6B", false, 0x60000},
}};

/** Name and place of a block. */
constexpr const BlockInfo& Info(Block block) { return kBlocks[static_cast<std::size_t>(block)]; }

/** Physical bases of the two regions, by board family. */
struct RegionBases {
  std::uint32_t image;   /**< of the IMAGE blocks */
  std::uint32_t rebuild; /**< of the REBUILD blocks */
};
/** Zynq-7000: series 21 to 24. */
inline constexpr RegionBases kZynqRegions{0x43C00000, 0x83C00000};
/** Zynq UltraScale+: series 25. */
inline constexpr RegionBases kZynqMpRegions{0xA0000000, 0xB0000000};

/** Physical address of a block on a board of the given family. */
constexpr std::uint32_t BaseAddress(Block block, RegionBases bases) {
  const BlockInfo& info = Info(block);
  return (info.in_image_region ? bases.image : bases.rebuild) + info.offset;
}

/** A register's or a field's name, kept inside the object: see RegisterList for the reason. */
class Name {
 public:
  constexpr Name() = default;
  /** At most 27 characters. */
  consteval Name(const char* text) { Append(text); }
  /** A text and a number up to 99, as in "STRIP_REBUILD_12". */
  constexpr Name(std::string_view text, std::size_t number) {
    Append(text);
    if (number > 9) text_[size_++] = static_cast<char>('0' + number / 10);
    text_[size_++] = static_cast<char>('0' + number % 10);
  }
  /** The text. */
  constexpr std::string_view View() const { return {text_.data(), size_}; }
  /** Compares with a text. */
  constexpr bool operator==(std::string_view text) const { return View() == text; }

 private:
  constexpr void Append(std::string_view text) {
    for (const char c : text) text_.at(size_++) = c;
  }

  std::array<char, 27> text_{};
  std::uint8_t size_ = 0;
};

/** A 32-bit register. Two are equal when they are at the same place. */
struct Register {
  Block block;          /**< the block it lies in */
  std::uint32_t offset; /**< bytes within the block */
  Name name;            /**< as the virtual board's transcript has it */

  /** In words, as fpga_read_addr() and fpga_write_addr() count. */
  constexpr std::uint32_t Index() const { return offset / 4; }
  /** Compares the places. */
  constexpr bool operator==(const Register& other) const {
    return block == other.block && offset == other.offset;
  }
};

/** `width` bits of a register, from bit `shift` up. */
struct Field {
  Register reg;   /**< the register it is a part of */
  unsigned shift; /**< its lowest bit */
  unsigned width; /**< number of bits */
  Name name;      /**< lower case, unique in its register except in SENSOR_TIMING's two layouts */

  /** Ones at the field's width, shifted down to bit 0. */
  constexpr std::uint32_t LowMask() const { return width >= 32 ? 0xFFFFFFFFu : (1u << width) - 1u; }
  /** Ones where the field is. */
  constexpr std::uint32_t Mask() const { return LowMask() << shift; }
  /** The field's value in a register word. */
  constexpr std::uint32_t Of(std::uint32_t word) const { return (word >> shift) & LowMask(); }
  /** The word with this field replaced; value bits above the field are dropped. */
  constexpr std::uint32_t In(std::uint32_t word, std::uint32_t value) const {
    return (word & ~Mask()) | ((value & LowMask()) << shift);
  }
};

/** The FPGA counts time in ticks of 20 ns: its clock is 50 MHz. */
inline constexpr std::uint32_t kTicksPerMicrosecond = 50;
/** The same, the other way round. */
inline constexpr std::uint32_t kNanosecondsPerTick = 20;

/**
 * The registers that stand alone. kAllRegisters adds the two stream switches and the
 * coefficients of the reconstruction, which are computed.
 *
 * This class is the only list of them. Members of one type lie one after another in memory, so
 * the object is an array with a name for each element, and std::bit_cast turns it into one. That
 * is why a Name holds its characters: a pointer cannot be cast at compile time.
 */
struct RegisterList {
  // IMAGE_BLOCK_0: image sensor, exposure, HDR
  Register CMOS_WORK_MODE{Block::kImage0, 0x00, "CMOS_WORK_MODE"};
  Register EXP_TIME_1{Block::kImage0, 0x04, "EXP_TIME_1"};
  Register EXP_TIME_2{Block::kImage0, 0x08, "EXP_TIME_2"};
  Register EXP_TIME_3{Block::kImage0, 0x0C, "EXP_TIME_3"};
  Register EXP_TIME_4{Block::kImage0, 0x10, "EXP_TIME_4"};
  Register EXP_TIME_5{Block::kImage0, 0x14, "EXP_TIME_5"};
  Register EXPOSURE_NUM{Block::kImage0, 0x18, "EXPOSURE_NUM"};
  Register EXP_DELAY{Block::kImage0, 0x1C, "EXP_DELAY"};
  Register XTRIG_LOST_STA{Block::kImage0, 0x20, "XTRIG_LOST_STA"};
  Register CMOS_TIMING_CTRL{Block::kImage0, 0x24, "CMOS_TIMING_CTRL"};
  Register LASER_CTRL{Block::kImage0, 0x28, "LASER_CTRL"};
  Register SENSOR_TIMING{Block::kImage0, 0x2C, "SENSOR_TIMING"};
  Register LASER_OFFSET_TIME{Block::kImage0, 0x30, "LASER_OFFSET_TIME"};
  Register FPGA_VERSION{Block::kImage0, 0x3C, "FPGA_VERSION"};
  Register HDR_CTRL{Block::kImage0, 0x40, "HDR_CTRL"};
  Register HDR_SEG2{Block::kImage0, 0x44, "HDR_SEG2"};
  Register HDR_SEG3{Block::kImage0, 0x48, "HDR_SEG3"};
  Register HDR_GAP{Block::kImage0, 0x4C, "HDR_GAP"};
  Register HDR_TOTAL{Block::kImage0, 0x50, "HDR_TOTAL"};
  // IMAGE_BLOCK_1: polarity, trigger, timers, encoder, image filter
  Register POLARITY{Block::kImage1, 0x00, "POLARITY"};
  Register TRIGGER_CTRL{Block::kImage1, 0x04, "TRIGGER_CTRL"};
  Register TRI_SPACING{Block::kImage1, 0x08, "TRI_SPACING"};
  Register TIMER_COUNTER_L{Block::kImage1, 0x0C, "TIMER_COUNTER_L"};
  Register TIMER_COUNTER_H{Block::kImage1, 0x10, "TIMER_COUNTER_H"};
  Register XTRIG_START_L{Block::kImage1, 0x14, "XTRIG_START_L"};
  Register XTRIG_START_H{Block::kImage1, 0x18, "XTRIG_START_H"};
  Register ENCODER_COUNTER_L{Block::kImage1, 0x1C, "ENCODER_COUNTER_L"};
  Register ENCODER_COUNTER_H{Block::kImage1, 0x20, "ENCODER_COUNTER_H"};
  Register ENCODER_FREQ{Block::kImage1, 0x24, "ENCODER_FREQ"};
  Register MASTER_CTRL{Block::kImage1, 0x28, "MASTER_CTRL"};
  Register IMG_FILTER_WIDTH{Block::kImage1, 0x2C, "IMG_FILTER_WIDTH"};
  Register IMG_FILTER_HEIGHT{Block::kImage1, 0x30, "IMG_FILTER_HEIGHT"};
  Register IMG_FILTER_THRS{Block::kImage1, 0x34, "IMG_FILTER_THRS"};
  // IMAGE_BLOCK_2 and IMAGE_BLOCK_4: the two stream switches
  Register STRIP_DELAY{Block::kImage2, 0x08, "STRIP_DELAY"};
  // IMAGE_BLOCK_3: digital outputs, reverse detection, delays, interrupts
  Register DO1_CTRL{Block::kImage3, 0x00, "DO1_CTRL"};
  Register DO2_CTRL{Block::kImage3, 0x04, "DO2_CTRL"};
  Register DO1_DELAY_L{Block::kImage3, 0x08, "DO1_DELAY_L"};
  Register DO1_DELAY_H{Block::kImage3, 0x0C, "DO1_DELAY_H"};
  Register DO2_DELAY_L{Block::kImage3, 0x10, "DO2_DELAY_L"};
  Register DO2_DELAY_H{Block::kImage3, 0x14, "DO2_DELAY_H"};
  Register REVERSE_CTRL{Block::kImage3, 0x1C, "REVERSE_CTRL"};
  Register TRI_DELAY{Block::kImage3, 0x20, "TRI_DELAY"};
  Register EXTIN_WIDTH{Block::kImage3, 0x24, "EXTIN_WIDTH"};
  Register IRQ_CTRL{Block::kImage3, 0x28, "IRQ_CTRL"};
  Register DA_OUTPUT_DELAY{Block::kImage3, 0x2C, "DA_OUTPUT_DELAY"};
  Register DO1_LOST_STA{Block::kImage3, 0x30, "DO1_LOST_STA"};
  Register DO2_LOST_STA{Block::kImage3, 0x34, "DO2_LOST_STA"};
  Register COMM_VERIFY_ERROR_STA{Block::kImage3, 0x38, "COMM_VERIFY_ERROR_STA"};
  Register EXT_TRIGGER_LEVEL{Block::kImage3, 0x3C, "EXT_TRIGGER_LEVEL"};
  // REBUILD_BLOCK_0
  Register STRIP_WRIMEM_STRATEGY{Block::kRebuild0, 0x40, "STRIP_WRIMEM_STRATEGY"};
  Register BR_CONT_MODE_A{Block::kRebuild0, 0x48, "BR_CONT_MODE_A"};
  // REBUILD_BLOCK_1: laser-line extraction
  Register RIS_THRESHOLD{Block::kRebuild1, 0x00, "RIS_THRESHOLD"};
  Register STRIP_WIDTH_MIN{Block::kRebuild1, 0x04, "STRIP_WIDTH_MIN"};
  Register STRIP_WIDTH_MAX{Block::kRebuild1, 0x08, "STRIP_WIDTH_MAX"};
  Register STRIP_IMAGE_WIDTH{Block::kRebuild1, 0x0C, "STRIP_IMAGE_WIDTH"};
  Register STRIP_IMAGE_HEIGHT{Block::kRebuild1, 0x10, "STRIP_IMAGE_HEIGHT"};
  Register BASE_THRESHOLD{Block::kRebuild1, 0x14, "BASE_THRESHOLD"};
  // REBUILD_BLOCK_2: callback-lost counter
  Register CALLBACK_LOST_RESET{Block::kRebuild2, 0x08, "CALLBACK_LOST_RESET"};
  Register CALLBACK_LOST_NUM{Block::kRebuild2, 0x0C, "CALLBACK_LOST_NUM"};
  // REBUILD_BLOCK_4: data path and image processing
  Register COLLECT_MODE{Block::kRebuild4, 0x00, "COLLECT_MODE"};
  Register STRIP_DATA_MODE{Block::kRebuild4, 0x04, "STRIP_DATA_MODE"};
  Register FRAME_ID_RESET{Block::kRebuild4, 0x08, "FRAME_ID_RESET"};
  Register ISP_WIDTH{Block::kRebuild4, 0x0C, "ISP_WIDTH"};
  Register ISP_HEIGHT{Block::kRebuild4, 0x10, "ISP_HEIGHT"};
  Register ISP_CTRL{Block::kRebuild4, 0x14, "ISP_CTRL"};
  Register OB_OFFSET{Block::kRebuild4, 0x18, "OB_OFFSET"};
  Register BRI_THRES{Block::kRebuild4, 0x1C, "BRI_THRES"};
  Register ENHANCE_CTRL{Block::kRebuild4, 0x20, "ENHANCE_CTRL"};
  Register MEDIAN_CTRL{Block::kRebuild4, 0x24, "MEDIAN_CTRL"};
  Register EROSION_CTRL{Block::kRebuild4, 0x28, "EROSION_CTRL"};
  Register FPGA_CONTINUOUS{Block::kRebuild4, 0x2C, "FPGA_CONTINUOUS"};
  // REBUILD_BLOCK_5: reconstruction
  Register MEASURING_RANGE_START{Block::kRebuild5, 0x4C, "MEASURING_RANGE_START"};
  Register MEASURING_RANGE_END{Block::kRebuild5, 0x50, "MEASURING_RANGE_END"};
  Register ROI_OFFSET{Block::kRebuild5, 0x54, "ROI_OFFSET"};
  Register RECONSTRUCTION_START_X{Block::kRebuild5, 0x58, "RECONSTRUCTION_START_X"};
  Register RECONSTRUCTION_STEP_X{Block::kRebuild5, 0x5C, "RECONSTRUCTION_STEP_X"};
  Register RECONSTRUCTION_CNT_X{Block::kRebuild5, 0x60, "RECONSTRUCTION_CNT_X"};
  /** Register at byte 0x64 of Block::kRebuild5. */
  Register STRIP_WRIMEM_STRATEGY_WIDTH{Block::kRebuild5, 0x64, "STRIP_WRIMEM_STRATEGY_WIDTH"};
  Register SAMPLE_LINE_PARAM_4{Block::kRebuild5, 0x68, "SAMPLE_LINE_PARAM_4"};
  Register SAMPLE_LINE_PARAM_5{Block::kRebuild5, 0x6C, "SAMPLE_LINE_PARAM_5"};
  Register BR_CONT_MODE_B{Block::kRebuild5, 0x78, "BR_CONT_MODE_B"};
  // REBUILD_BLOCK_6
  /** Register at byte 0x10 of Block::kRebuild6. */
  Register STRIP_SELECTOR_IMAGE_WIDTH{Block::kRebuild6, 0x10, "STRIP_SELECTOR_IMAGE_WIDTH"};
};
/** Every register that stands alone, by name: `kReg.POLARITY`. */
inline constexpr RegisterList kReg;

/** Ports of a stream switch. */
inline constexpr std::size_t kStreamSwitchPorts = 16;
/** In a port register: nothing comes out of the port. */
inline constexpr std::uint32_t kStreamSwitchPortOff = 0x80000000;
/** In the control register: the ports take over what was written. */
inline constexpr std::uint32_t kStreamSwitchCommit = 2;

/** Control register of the switch in IMAGE_BLOCK_2 or IMAGE_BLOCK_4: bit 1 commits the routing. */
constexpr Register StreamSwitchControl(Block block) { return {block, 0x00, "STREAM_SWITCH_CTRL"}; }

/** Port register: the low bits select the source, bit 31 switches the port off. */
constexpr Register StreamSwitchPort(Block block, std::size_t port) {
  return {block, static_cast<std::uint32_t>(0x40 + 4 * port), Name("STREAM_SWITCH_PORT_", port)};
}

/** Coefficients of the reconstruction. */
inline constexpr std::size_t kStripRebuildCount = 21;

/** Coefficient i: 0 to 18 lie in sequence, 19 and 20 behind the light-line parameters. */
constexpr Register StripRebuild(std::size_t i) {
  return {Block::kRebuild5, static_cast<std::uint32_t>(i < 19 ? 4 * i : 0x70 + 4 * (i - 19)),
          Name("STRIP_REBUILD_", i)};
}

/** Fields of one digital output's control word. */
struct DigitalOutputFields {
  Field width;            /**< see SetOutWidth() */
  Field event;            /**< see SetOutEvent() */
  Field mode;             /**< see SetOutMode() */
  Field delay_enable;     /**< see SetOutDelayEn() */
  Field software_trigger; /**< see OutputSWTrigger() */
  Field fifo_write;       /**< see WRFifo() */
  Field enable;           /**< see SetDigitalOutputEnState() */
  Field delay_standard;   /**< see SetExtTriDelayStandard() */
};
/** The fields, in an output's control register. */
constexpr DigitalOutputFields DigitalOutput(Register control) {
  return {{control, 0, 21, "width"},      {control, 21, 2, "event"},
          {control, 23, 1, "mode"},       {control, 24, 1, "delay_enable"},
          {control, 25, 1, "sw_trigger"}, {control, 26, 1, "fifo_write"},
          {control, 27, 1, "enable"},     {control, 28, 1, "delay_standard"}};
}
/** Every field narrower than its register: one list, as RegisterList is. */
struct FieldList {
  Field cmos_reset{kReg.CMOS_WORK_MODE, 0, 1, "reset"};
  Field cmos_work{kReg.CMOS_WORK_MODE, 1, 1, "work"};
  Field exposure_count{kReg.EXPOSURE_NUM, 0, 3, "count"};
  Field exposure_delta{kReg.EXPOSURE_NUM, 3, 29, "delta"};
  Field exposure_delay{kReg.EXP_DELAY, 0, 12, "delay"};
  Field timing_first{kReg.CMOS_TIMING_CTRL, 0, 1, "first"};
  Field timing_second{kReg.CMOS_TIMING_CTRL, 2, 1, "second"};
  Field trigger_lost_reset{kReg.LASER_CTRL, 0, 1, "trigger_lost_reset"};
  Field laser_mode{kReg.LASER_CTRL, 1, 1, "laser_mode"};
  Field t_ges{kReg.SENSOR_TIMING, 0, 5, "t_ges"};
  Field t_row{kReg.SENSOR_TIMING, 5, 27, "t_row"};
  /** FpgaLogic25 splits the same word in halves. */
  Field t_ges_halves{kReg.SENSOR_TIMING, 0, 16, "t_ges"};
  Field t_row_halves{kReg.SENSOR_TIMING, 16, 16, "t_row"};
  Field fpga_version{kReg.FPGA_VERSION, 0, 16, "version"};
  Field fpga_series{kReg.FPGA_VERSION, 16, 16, "series"};
  Field hdr_enable{kReg.HDR_CTRL, 0, 1, "enable"};
  Field hdr_segment1{kReg.HDR_CTRL, 1, 31, "segment1"};
  Field cam_tri_polarity{kReg.POLARITY, 0, 1, "camera_trigger"};
  Field cam_res_polarity{kReg.POLARITY, 1, 1, "camera_reset"};
  Field las_tri_polarity{kReg.POLARITY, 2, 1, "laser_trigger"};
  Field ext_tri_polarity{kReg.POLARITY, 3, 1, "external_trigger"};
  Field out1_polarity{kReg.POLARITY, 4, 1, "output1"};
  Field out2_polarity{kReg.POLARITY, 5, 1, "output2"};
  Field trigger_mode{kReg.TRIGGER_CTRL, 0, 2, "mode"};
  Field door_control{kReg.TRIGGER_CTRL, 2, 1, "door_control"};
  Field software_trigger{kReg.TRIGGER_CTRL, 3, 1, "software_trigger"};
  Field trigger_delay_enable{kReg.TRIGGER_CTRL, 4, 1, "delay_enable"};
  Field trigger_delay_standard{kReg.TRIGGER_CTRL, 5, 1, "delay_standard"};
  Field global_control{kReg.TRIGGER_CTRL, 6, 1, "global_control"};
  Field master_id{kReg.MASTER_CTRL, 0, 4, "id"};
  Field master_state{kReg.MASTER_CTRL, 4, 1, "state"};
  Field filter_threshold{kReg.IMG_FILTER_THRS, 0, 16, "threshold"};
  Field filter_strobe{kReg.IMG_FILTER_THRS, 16, 1, "strobe"};
  /** Indexed by DigitalOutputChannel. */
  std::array<DigitalOutputFields, 2> digital_outputs{DigitalOutput(kReg.DO1_CTRL),
                                                     DigitalOutput(kReg.DO2_CTRL)};
  Field reverse_mode{kReg.REVERSE_CTRL, 0, 2, "mode"};
  Field reverse_distance{kReg.REVERSE_CTRL, 2, 10, "distance"};
  Field da_irq_enable{kReg.IRQ_CTRL, 0, 1, "da_irq"};
  Field da_delay_standard{kReg.IRQ_CTRL, 1, 1, "da_delay_standard"};
  Field external_trigger_irq_enable{kReg.IRQ_CTRL, 2, 1, "external_trigger_irq"};
  Field external_trigger_level{kReg.EXT_TRIGGER_LEVEL, 0, 1, "level"};
  Field isp_height{kReg.ISP_HEIGHT, 8, 24, "height"};
  Field isp_readout_mode{kReg.ISP_CTRL, 0, 2, "readout_mode"};
  Field isp_binning{kReg.ISP_CTRL, 2, 1, "binning"};
  Field isp_hot_pixel{kReg.ISP_CTRL, 3, 1, "hot_pixel"};
  Field isp_flipping{kReg.ISP_CTRL, 4, 1, "flipping"};
  Field brightness_max{kReg.BRI_THRES, 0, 8, "max"};
  Field brightness_min{kReg.BRI_THRES, 8, 8, "min"};
  Field enhance_enable{kReg.ENHANCE_CTRL, 0, 1, "enable"};
  Field enhance_max{kReg.ENHANCE_CTRL, 1, 8, "max"};
  Field enhance_min{kReg.ENHANCE_CTRL, 9, 8, "min"};
  Field enhance_num{kReg.ENHANCE_CTRL, 17, 4, "num"};
  Field enhance_gain{kReg.ENHANCE_CTRL, 21, 3, "gain"};
  Field median_enable{kReg.MEDIAN_CTRL, 0, 1, "enable"};
  Field erosion_enable{kReg.EROSION_CTRL, 0, 1, "enable"};
  Field erosion_max{kReg.EROSION_CTRL, 1, 8, "max"};
  Field erosion_min{kReg.EROSION_CTRL, 9, 8, "min"};
  Field erosion_num{kReg.EROSION_CTRL, 17, 4, "num"};
  Field erosion_strategy{kReg.EROSION_CTRL, 21, 2, "strategy"};
  Field roi_offset_x{kReg.ROI_OFFSET, 0, 12, "x"};
  Field roi_offset_y{kReg.ROI_OFFSET, 12, 13, "y"};
  Field pl_drive_mode{kReg.ROI_OFFSET, 25, 7, "drive_mode"};
};
/** Every field, by name: `kField.trigger_mode`. */
inline constexpr FieldList kField;

namespace detail {
template <typename Element, typename List>
constexpr auto AsArray(const List& list) {
  return std::bit_cast<std::array<Element, sizeof(List) / sizeof(Element)>>(list);
}

constexpr auto MakeAllRegisters() {
  constexpr auto kAlone = AsArray<Register>(kReg);
  std::array<Register, kAlone.size() + kStripRebuildCount + 2 * (kStreamSwitchPorts + 1)> all{};
  auto next = std::copy(kAlone.begin(), kAlone.end(), all.begin());
  for (std::size_t i = 0; i < kStripRebuildCount; ++i) *next++ = StripRebuild(i);
  for (const Block block : {Block::kImage2, Block::kImage4}) {
    *next++ = StreamSwitchControl(block);
    for (std::size_t i = 0; i < kStreamSwitchPorts; ++i) *next++ = StreamSwitchPort(block, i);
  }
  return all;
}
}  // namespace detail

/** Every register, in no particular order. */
inline constexpr auto kAllRegisters = detail::MakeAllRegisters();

/** Every field of kField: no two overlap, except the two layouts of SENSOR_TIMING. */
inline constexpr auto kAllFields = detail::AsArray<Field>(kField);

/** The register at a place, or null when software knows none there. */
constexpr const Register* FindRegister(Block block, std::uint32_t offset) {
  for (const Register& reg : kAllRegisters) {
    if (reg.block == block && reg.offset == offset) return &reg;
  }
  return nullptr;
}

}  // namespace VeltranoSDK::fpga

#endif
