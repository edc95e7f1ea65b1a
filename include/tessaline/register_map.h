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

#include <array>
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

/** A 32-bit register. Two are equal when they are at the same place. */
struct Register {
  Block block;           /**< the block it lies in */
  std::uint32_t offset;  /**< bytes within the block */
  std::string_view name; /**< as the virtual board's transcript has it */

  /** In words, as fpga_read_addr() and fpga_write_addr() count. */
  constexpr std::uint32_t Index() const { return offset / 4; }
  /** Compares the places. */
  constexpr bool operator==(const Register& other) const {
    return block == other.block && offset == other.offset;
  }
};

/** `width` bits of a register, from bit `shift` up. */
struct Field {
  Register reg;          /**< the register it is a part of */
  unsigned shift;        /**< its lowest bit */
  unsigned width;        /**< number of bits */
  std::string_view name; /**< in lower case, unique in its register */

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

// --- IMAGE_BLOCK_0: image sensor, exposure, HDR --------------------------------------------
inline constexpr Register CMOS_WORK_MODE{Block::kImage0, 0x00, "CMOS_WORK_MODE"};
inline constexpr Register EXP_TIME_1{Block::kImage0, 0x04, "EXP_TIME_1"};
inline constexpr Register EXP_TIME_2{Block::kImage0, 0x08, "EXP_TIME_2"};
inline constexpr Register EXP_TIME_3{Block::kImage0, 0x0C, "EXP_TIME_3"};
inline constexpr Register EXP_TIME_4{Block::kImage0, 0x10, "EXP_TIME_4"};
inline constexpr Register EXP_TIME_5{Block::kImage0, 0x14, "EXP_TIME_5"};
inline constexpr Register EXPOSURE_NUM{Block::kImage0, 0x18, "EXPOSURE_NUM"};
inline constexpr Register EXP_DELAY{Block::kImage0, 0x1C, "EXP_DELAY"};
inline constexpr Register XTRIG_LOST_STA{Block::kImage0, 0x20, "XTRIG_LOST_STA"};
inline constexpr Register CMOS_TIMING_CTRL{Block::kImage0, 0x24, "CMOS_TIMING_CTRL"};
inline constexpr Register LASER_CTRL{Block::kImage0, 0x28, "LASER_CTRL"};
inline constexpr Register SENSOR_TIMING{Block::kImage0, 0x2C, "SENSOR_TIMING"};
inline constexpr Register LASER_OFFSET_TIME{Block::kImage0, 0x30, "LASER_OFFSET_TIME"};
inline constexpr Register FPGA_VERSION{Block::kImage0, 0x3C, "FPGA_VERSION"};
inline constexpr Register HDR_CTRL{Block::kImage0, 0x40, "HDR_CTRL"};
inline constexpr Register HDR_SEG2{Block::kImage0, 0x44, "HDR_SEG2"};
inline constexpr Register HDR_SEG3{Block::kImage0, 0x48, "HDR_SEG3"};
inline constexpr Register HDR_GAP{Block::kImage0, 0x4C, "HDR_GAP"};
inline constexpr Register HDR_TOTAL{Block::kImage0, 0x50, "HDR_TOTAL"};

inline constexpr Field kCmosReset{CMOS_WORK_MODE, 0, 1, "reset"};
inline constexpr Field kCmosWork{CMOS_WORK_MODE, 1, 1, "work"};
inline constexpr Field kExposureCount{EXPOSURE_NUM, 0, 3, "count"};
inline constexpr Field kExposureDelta{EXPOSURE_NUM, 3, 29, "delta"};
inline constexpr Field kExposureDelay{EXP_DELAY, 0, 12, "delay"};
inline constexpr Field kTimingFirst{CMOS_TIMING_CTRL, 0, 1, "first"};
inline constexpr Field kTimingSecond{CMOS_TIMING_CTRL, 2, 1, "second"};
inline constexpr Field kTriggerLostReset{LASER_CTRL, 0, 1, "trigger_lost_reset"};
inline constexpr Field kLaserMode{LASER_CTRL, 1, 1, "laser_mode"};
inline constexpr Field kTGes{SENSOR_TIMING, 0, 5, "t_ges"};
inline constexpr Field kTRow{SENSOR_TIMING, 5, 27, "t_row"};
/** FpgaLogic25 splits the same word in halves. */
inline constexpr Field kTGes25{SENSOR_TIMING, 0, 16, "t_ges"};
inline constexpr Field kTRow25{SENSOR_TIMING, 16, 16, "t_row"};
inline constexpr Field kFpgaVersion{FPGA_VERSION, 0, 16, "version"};
inline constexpr Field kFpgaSeries{FPGA_VERSION, 16, 16, "series"};
inline constexpr Field kHdrEnable{HDR_CTRL, 0, 1, "enable"};
inline constexpr Field kHdrSegment1{HDR_CTRL, 1, 31, "segment1"};

// --- IMAGE_BLOCK_1: polarity, trigger, timers, encoder, image filter -----------------------
inline constexpr Register POLARITY{Block::kImage1, 0x00, "POLARITY"};
inline constexpr Register TRIGGER_CTRL{Block::kImage1, 0x04, "TRIGGER_CTRL"};
inline constexpr Register TRI_SPACING{Block::kImage1, 0x08, "TRI_SPACING"};
inline constexpr Register TIMER_COUNTER_L{Block::kImage1, 0x0C, "TIMER_COUNTER_L"};
inline constexpr Register TIMER_COUNTER_H{Block::kImage1, 0x10, "TIMER_COUNTER_H"};
inline constexpr Register XTRIG_START_L{Block::kImage1, 0x14, "XTRIG_START_L"};
inline constexpr Register XTRIG_START_H{Block::kImage1, 0x18, "XTRIG_START_H"};
inline constexpr Register ENCODER_COUNTER_L{Block::kImage1, 0x1C, "ENCODER_COUNTER_L"};
inline constexpr Register ENCODER_COUNTER_H{Block::kImage1, 0x20, "ENCODER_COUNTER_H"};
inline constexpr Register ENCODER_FREQ{Block::kImage1, 0x24, "ENCODER_FREQ"};
inline constexpr Register MASTER_CTRL{Block::kImage1, 0x28, "MASTER_CTRL"};
inline constexpr Register IMG_FILTER_WIDTH{Block::kImage1, 0x2C, "IMG_FILTER_WIDTH"};
inline constexpr Register IMG_FILTER_HEIGHT{Block::kImage1, 0x30, "IMG_FILTER_HEIGHT"};
inline constexpr Register IMG_FILTER_THRS{Block::kImage1, 0x34, "IMG_FILTER_THRS"};

inline constexpr Field kCamTriPolarity{POLARITY, 0, 1, "camera_trigger"};
inline constexpr Field kCamResPolarity{POLARITY, 1, 1, "camera_reset"};
inline constexpr Field kLasTriPolarity{POLARITY, 2, 1, "laser_trigger"};
inline constexpr Field kExtTriPolarity{POLARITY, 3, 1, "external_trigger"};
inline constexpr Field kOut1Polarity{POLARITY, 4, 1, "output1"};
inline constexpr Field kOut2Polarity{POLARITY, 5, 1, "output2"};
inline constexpr Field kAllPolarities{POLARITY, 0, 6, "all"};
inline constexpr Field kTriggerMode{TRIGGER_CTRL, 0, 2, "mode"};
inline constexpr Field kDoorControl{TRIGGER_CTRL, 2, 1, "door_control"};
inline constexpr Field kSoftwareTrigger{TRIGGER_CTRL, 3, 1, "software_trigger"};
inline constexpr Field kTriggerDelayEnable{TRIGGER_CTRL, 4, 1, "delay_enable"};
inline constexpr Field kTriggerDelayStandard{TRIGGER_CTRL, 5, 1, "delay_standard"};
inline constexpr Field kGlobalControl{TRIGGER_CTRL, 6, 1, "global_control"};
inline constexpr Field kMasterId{MASTER_CTRL, 0, 4, "id"};
inline constexpr Field kMasterState{MASTER_CTRL, 4, 1, "state"};
inline constexpr Field kFilterThreshold{IMG_FILTER_THRS, 0, 16, "threshold"};
inline constexpr Field kFilterStrobe{IMG_FILTER_THRS, 16, 1, "strobe"};

// --- IMAGE_BLOCK_2 and IMAGE_BLOCK_4: the two stream switches ------------------------------
/** Ports of a stream switch. */
inline constexpr std::size_t kStreamSwitchPorts = 16;
/** In a port register: nothing comes out of the port. */
inline constexpr std::uint32_t kStreamSwitchPortOff = 0x80000000;
/** In the control register: the ports take over what was written. */
inline constexpr std::uint32_t kStreamSwitchCommit = 2;

/** Names of the port registers, by port. */
inline constexpr std::array<std::string_view, kStreamSwitchPorts> kStreamSwitchPortNames{
    "STREAM_SWITCH_PORT_0",  "STREAM_SWITCH_PORT_1",  "STREAM_SWITCH_PORT_2",
    "STREAM_SWITCH_PORT_3",  "STREAM_SWITCH_PORT_4",  "STREAM_SWITCH_PORT_5",
    "STREAM_SWITCH_PORT_6",  "STREAM_SWITCH_PORT_7",  "STREAM_SWITCH_PORT_8",
    "STREAM_SWITCH_PORT_9",  "STREAM_SWITCH_PORT_10", "STREAM_SWITCH_PORT_11",
    "STREAM_SWITCH_PORT_12", "STREAM_SWITCH_PORT_13", "STREAM_SWITCH_PORT_14",
    "STREAM_SWITCH_PORT_15"};

/** Control register of the switch in IMAGE_BLOCK_2 or IMAGE_BLOCK_4: bit 1 commits the routing. */
constexpr Register StreamSwitchControl(Block block) { return {block, 0x00, "STREAM_SWITCH_CTRL"}; }

/** Port register: the low bits select the source, bit 31 switches the port off. */
constexpr Register StreamSwitchPort(Block block, std::size_t port) {
  return {block, static_cast<std::uint32_t>(0x40 + 4 * port), kStreamSwitchPortNames[port]};
}

inline constexpr Register STRIP_DELAY{Block::kImage2, 0x08, "STRIP_DELAY"};

// --- IMAGE_BLOCK_3: digital outputs, reverse detection, delays, interrupts -----------------
inline constexpr Register DO1_CTRL{Block::kImage3, 0x00, "DO1_CTRL"};
inline constexpr Register DO2_CTRL{Block::kImage3, 0x04, "DO2_CTRL"};
inline constexpr Register DO1_DELAY_L{Block::kImage3, 0x08, "DO1_DELAY_L"};
inline constexpr Register DO1_DELAY_H{Block::kImage3, 0x0C, "DO1_DELAY_H"};
inline constexpr Register DO2_DELAY_L{Block::kImage3, 0x10, "DO2_DELAY_L"};
inline constexpr Register DO2_DELAY_H{Block::kImage3, 0x14, "DO2_DELAY_H"};
inline constexpr Register REVERSE_CTRL{Block::kImage3, 0x1C, "REVERSE_CTRL"};
inline constexpr Register TRI_DELAY{Block::kImage3, 0x20, "TRI_DELAY"};
inline constexpr Register EXTIN_WIDTH{Block::kImage3, 0x24, "EXTIN_WIDTH"};
inline constexpr Register IRQ_CTRL{Block::kImage3, 0x28, "IRQ_CTRL"};
inline constexpr Register DA_OUTPUT_DELAY{Block::kImage3, 0x2C, "DA_OUTPUT_DELAY"};
inline constexpr Register DO1_LOST_STA{Block::kImage3, 0x30, "DO1_LOST_STA"};
inline constexpr Register DO2_LOST_STA{Block::kImage3, 0x34, "DO2_LOST_STA"};
inline constexpr Register COMM_VERIFY_ERROR_STA{Block::kImage3, 0x38, "COMM_VERIFY_ERROR_STA"};
inline constexpr Register EXT_TRIGGER_LEVEL{Block::kImage3, 0x3C, "EXT_TRIGGER_LEVEL"};

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
/** Indexed by DigitalOutputChannel. */
inline constexpr std::array<DigitalOutputFields, 2> kDigitalOutputs{DigitalOutput(DO1_CTRL),
                                                                    DigitalOutput(DO2_CTRL)};
inline constexpr Field kReverseMode{REVERSE_CTRL, 0, 2, "mode"};
inline constexpr Field kReverseDistance{REVERSE_CTRL, 2, 10, "distance"};
inline constexpr Field kDaIrqEnable{IRQ_CTRL, 0, 1, "da_irq"};
inline constexpr Field kDaDelayStandard{IRQ_CTRL, 1, 1, "da_delay_standard"};
inline constexpr Field kExternalTriggerIrqEnable{IRQ_CTRL, 2, 1, "external_trigger_irq"};
inline constexpr Field kExternalTriggerLevel{EXT_TRIGGER_LEVEL, 0, 1, "level"};

// --- REBUILD_BLOCK_0 -----------------------------------------------------------------------
inline constexpr Register STRIP_WRIMEM_STRATEGY{Block::kRebuild0, 0x40, "STRIP_WRIMEM_STRATEGY"};
inline constexpr Register BR_CONT_MODE_A{Block::kRebuild0, 0x48, "BR_CONT_MODE_A"};

// --- REBUILD_BLOCK_1: laser-line extraction ------------------------------------------------
inline constexpr Register RIS_THRESHOLD{Block::kRebuild1, 0x00, "RIS_THRESHOLD"};
inline constexpr Register STRIP_WIDTH_MIN{Block::kRebuild1, 0x04, "STRIP_WIDTH_MIN"};
inline constexpr Register STRIP_WIDTH_MAX{Block::kRebuild1, 0x08, "STRIP_WIDTH_MAX"};
inline constexpr Register STRIP_IMAGE_WIDTH{Block::kRebuild1, 0x0C, "STRIP_IMAGE_WIDTH"};
inline constexpr Register STRIP_IMAGE_HEIGHT{Block::kRebuild1, 0x10, "STRIP_IMAGE_HEIGHT"};
inline constexpr Register BASE_THRESHOLD{Block::kRebuild1, 0x14, "BASE_THRESHOLD"};

// --- REBUILD_BLOCK_2: callback-lost counter ------------------------------------------------
inline constexpr Register CALLBACK_LOST_RESET{Block::kRebuild2, 0x08, "CALLBACK_LOST_RESET"};
inline constexpr Register CALLBACK_LOST_NUM{Block::kRebuild2, 0x0C, "CALLBACK_LOST_NUM"};

// --- REBUILD_BLOCK_4: data path and image processing ---------------------------------------
inline constexpr Register COLLECT_MODE{Block::kRebuild4, 0x00, "COLLECT_MODE"};
inline constexpr Register STRIP_DATA_MODE{Block::kRebuild4, 0x04, "STRIP_DATA_MODE"};
inline constexpr Register FRAME_ID_RESET{Block::kRebuild4, 0x08, "FRAME_ID_RESET"};
inline constexpr Register ISP_WIDTH{Block::kRebuild4, 0x0C, "ISP_WIDTH"};
inline constexpr Register ISP_HEIGHT{Block::kRebuild4, 0x10, "ISP_HEIGHT"};
inline constexpr Register ISP_CTRL{Block::kRebuild4, 0x14, "ISP_CTRL"};
inline constexpr Register OB_OFFSET{Block::kRebuild4, 0x18, "OB_OFFSET"};
inline constexpr Register BRI_THRES{Block::kRebuild4, 0x1C, "BRI_THRES"};
inline constexpr Register ENHANCE_CTRL{Block::kRebuild4, 0x20, "ENHANCE_CTRL"};
inline constexpr Register MEDIAN_CTRL{Block::kRebuild4, 0x24, "MEDIAN_CTRL"};
inline constexpr Register EROSION_CTRL{Block::kRebuild4, 0x28, "EROSION_CTRL"};
inline constexpr Register FPGA_CONTINUOUS{Block::kRebuild4, 0x2C, "FPGA_CONTINUOUS"};

inline constexpr Field kIspHeight{ISP_HEIGHT, 8, 24, "height"};
inline constexpr Field kIspReadoutMode{ISP_CTRL, 0, 2, "readout_mode"};
inline constexpr Field kIspBinning{ISP_CTRL, 2, 1, "binning"};
inline constexpr Field kIspHotPixel{ISP_CTRL, 3, 1, "hot_pixel"};
inline constexpr Field kIspFlipping{ISP_CTRL, 4, 1, "flipping"};
inline constexpr Field kBrightnessMax{BRI_THRES, 0, 8, "max"};
inline constexpr Field kBrightnessMin{BRI_THRES, 8, 8, "min"};
inline constexpr Field kEnhanceEnable{ENHANCE_CTRL, 0, 1, "enable"};
inline constexpr Field kEnhanceMax{ENHANCE_CTRL, 1, 8, "max"};
inline constexpr Field kEnhanceMin{ENHANCE_CTRL, 9, 8, "min"};
inline constexpr Field kEnhanceNum{ENHANCE_CTRL, 17, 4, "num"};
inline constexpr Field kEnhanceGain{ENHANCE_CTRL, 21, 3, "gain"};
inline constexpr Field kMedianEnable{MEDIAN_CTRL, 0, 1, "enable"};
inline constexpr Field kErosionEnable{EROSION_CTRL, 0, 1, "enable"};
inline constexpr Field kErosionMax{EROSION_CTRL, 1, 8, "max"};
inline constexpr Field kErosionMin{EROSION_CTRL, 9, 8, "min"};
inline constexpr Field kErosionNum{EROSION_CTRL, 17, 4, "num"};
inline constexpr Field kErosionStrategy{EROSION_CTRL, 21, 2, "strategy"};

// --- REBUILD_BLOCK_5: reconstruction -------------------------------------------------------
/** Coefficients of the reconstruction. */
inline constexpr std::size_t kStripRebuildCount = 21;
/** Names of their registers. */
inline constexpr std::array<std::string_view, kStripRebuildCount> kStripRebuildNames{
    "STRIP_REBUILD_0",  "STRIP_REBUILD_1",  "STRIP_REBUILD_2",  "STRIP_REBUILD_3",
    "STRIP_REBUILD_4",  "STRIP_REBUILD_5",  "STRIP_REBUILD_6",  "STRIP_REBUILD_7",
    "STRIP_REBUILD_8",  "STRIP_REBUILD_9",  "STRIP_REBUILD_10", "STRIP_REBUILD_11",
    "STRIP_REBUILD_12", "STRIP_REBUILD_13", "STRIP_REBUILD_14", "STRIP_REBUILD_15",
    "STRIP_REBUILD_16", "STRIP_REBUILD_17", "STRIP_REBUILD_18", "STRIP_REBUILD_19",
    "STRIP_REBUILD_20"};

/** Coefficient i: 0 to 18 lie in sequence, 19 and 20 behind the light-line parameters. */
constexpr Register StripRebuild(std::size_t i) {
  return {Block::kRebuild5, static_cast<std::uint32_t>(i < 19 ? 4 * i : 0x70 + 4 * (i - 19)),
          kStripRebuildNames[i]};
}
inline constexpr Register MEASURING_RANGE_START{Block::kRebuild5, 0x4C, "MEASURING_RANGE_START"};
inline constexpr Register MEASURING_RANGE_END{Block::kRebuild5, 0x50, "MEASURING_RANGE_END"};
inline constexpr Register ROI_OFFSET{Block::kRebuild5, 0x54, "ROI_OFFSET"};
inline constexpr Register RECONSTRUCTION_START_X{Block::kRebuild5, 0x58, "RECONSTRUCTION_START_X"};
inline constexpr Register RECONSTRUCTION_STEP_X{Block::kRebuild5, 0x5C, "RECONSTRUCTION_STEP_X"};
inline constexpr Register RECONSTRUCTION_CNT_X{Block::kRebuild5, 0x60, "RECONSTRUCTION_CNT_X"};
/** Register at byte 0x64 of Block::kRebuild5. */
inline constexpr Register STRIP_WRIMEM_STRATEGY_WIDTH{Block::kRebuild5, 0x64,
                                                      "STRIP_WRIMEM_STRATEGY_WIDTH"};
inline constexpr Register SAMPLE_LINE_PARAM_4{Block::kRebuild5, 0x68, "SAMPLE_LINE_PARAM_4"};
inline constexpr Register SAMPLE_LINE_PARAM_5{Block::kRebuild5, 0x6C, "SAMPLE_LINE_PARAM_5"};
inline constexpr Register BR_CONT_MODE_B{Block::kRebuild5, 0x78, "BR_CONT_MODE_B"};

inline constexpr Field kRoiOffsetX{ROI_OFFSET, 0, 12, "x"};
inline constexpr Field kRoiOffsetY{ROI_OFFSET, 12, 13, "y"};
inline constexpr Field kPlDriveMode{ROI_OFFSET, 25, 7, "drive_mode"};

// --- REBUILD_BLOCK_6 -----------------------------------------------------------------------
/** Register at byte 0x10 of Block::kRebuild6. */
inline constexpr Register STRIP_SELECTOR_IMAGE_WIDTH{Block::kRebuild6, 0x10,
                                                     "STRIP_SELECTOR_IMAGE_WIDTH"};

namespace detail {
inline constexpr std::array kSingleRegisters{CMOS_WORK_MODE,
                                             EXP_TIME_1,
                                             EXP_TIME_2,
                                             EXP_TIME_3,
                                             EXP_TIME_4,
                                             EXP_TIME_5,
                                             EXPOSURE_NUM,
                                             EXP_DELAY,
                                             XTRIG_LOST_STA,
                                             CMOS_TIMING_CTRL,
                                             LASER_CTRL,
                                             SENSOR_TIMING,
                                             LASER_OFFSET_TIME,
                                             FPGA_VERSION,
                                             HDR_CTRL,
                                             HDR_SEG2,
                                             HDR_SEG3,
                                             HDR_GAP,
                                             HDR_TOTAL,
                                             POLARITY,
                                             TRIGGER_CTRL,
                                             TRI_SPACING,
                                             TIMER_COUNTER_L,
                                             TIMER_COUNTER_H,
                                             XTRIG_START_L,
                                             XTRIG_START_H,
                                             ENCODER_COUNTER_L,
                                             ENCODER_COUNTER_H,
                                             ENCODER_FREQ,
                                             MASTER_CTRL,
                                             IMG_FILTER_WIDTH,
                                             IMG_FILTER_HEIGHT,
                                             IMG_FILTER_THRS,
                                             STRIP_DELAY,
                                             DO1_CTRL,
                                             DO2_CTRL,
                                             DO1_DELAY_L,
                                             DO1_DELAY_H,
                                             DO2_DELAY_L,
                                             DO2_DELAY_H,
                                             REVERSE_CTRL,
                                             TRI_DELAY,
                                             EXTIN_WIDTH,
                                             IRQ_CTRL,
                                             DA_OUTPUT_DELAY,
                                             DO1_LOST_STA,
                                             DO2_LOST_STA,
                                             COMM_VERIFY_ERROR_STA,
                                             EXT_TRIGGER_LEVEL,
                                             STRIP_WRIMEM_STRATEGY,
                                             BR_CONT_MODE_A,
                                             RIS_THRESHOLD,
                                             STRIP_WIDTH_MIN,
                                             STRIP_WIDTH_MAX,
                                             STRIP_IMAGE_WIDTH,
                                             STRIP_IMAGE_HEIGHT,
                                             BASE_THRESHOLD,
                                             CALLBACK_LOST_RESET,
                                             CALLBACK_LOST_NUM,
                                             COLLECT_MODE,
                                             STRIP_DATA_MODE,
                                             FRAME_ID_RESET,
                                             ISP_WIDTH,
                                             ISP_HEIGHT,
                                             ISP_CTRL,
                                             OB_OFFSET,
                                             BRI_THRES,
                                             ENHANCE_CTRL,
                                             MEDIAN_CTRL,
                                             EROSION_CTRL,
                                             FPGA_CONTINUOUS,
                                             MEASURING_RANGE_START,
                                             MEASURING_RANGE_END,
                                             ROI_OFFSET,
                                             RECONSTRUCTION_START_X,
                                             RECONSTRUCTION_STEP_X,
                                             RECONSTRUCTION_CNT_X,
                                             STRIP_WRIMEM_STRATEGY_WIDTH,
                                             SAMPLE_LINE_PARAM_4,
                                             SAMPLE_LINE_PARAM_5,
                                             BR_CONT_MODE_B,
                                             STRIP_SELECTOR_IMAGE_WIDTH};

constexpr auto MakeAllRegisters() {
  std::array<Register, kSingleRegisters.size() + kStripRebuildCount + 2 * (kStreamSwitchPorts + 1)>
      all{};
  std::size_t n = 0;
  for (const Register& reg : kSingleRegisters) all[n++] = reg;
  for (std::size_t i = 0; i < kStripRebuildCount; ++i) all[n++] = StripRebuild(i);
  for (const Block block : {Block::kImage2, Block::kImage4}) {
    all[n++] = StreamSwitchControl(block);
    for (std::size_t port = 0; port < kStreamSwitchPorts; ++port) {
      all[n++] = StreamSwitchPort(block, port);
    }
  }
  return all;
}
}  // namespace detail

/** Every register, in no particular order. */
inline constexpr auto kAllRegisters = detail::MakeAllRegisters();

/** Every field narrower than its register. SENSOR_TIMING appears in both of its layouts. */
inline constexpr std::array kAllFields{kCmosReset,
                                       kCmosWork,
                                       kExposureCount,
                                       kExposureDelta,
                                       kExposureDelay,
                                       kTimingFirst,
                                       kTimingSecond,
                                       kTriggerLostReset,
                                       kLaserMode,
                                       kTGes,
                                       kTRow,
                                       kTGes25,
                                       kTRow25,
                                       kFpgaVersion,
                                       kFpgaSeries,
                                       kHdrEnable,
                                       kHdrSegment1,
                                       kCamTriPolarity,
                                       kCamResPolarity,
                                       kLasTriPolarity,
                                       kExtTriPolarity,
                                       kOut1Polarity,
                                       kOut2Polarity,
                                       kTriggerMode,
                                       kDoorControl,
                                       kSoftwareTrigger,
                                       kTriggerDelayEnable,
                                       kTriggerDelayStandard,
                                       kGlobalControl,
                                       kMasterId,
                                       kMasterState,
                                       kFilterThreshold,
                                       kFilterStrobe,
                                       kDigitalOutputs[0].width,
                                       kDigitalOutputs[0].event,
                                       kDigitalOutputs[0].mode,
                                       kDigitalOutputs[0].delay_enable,
                                       kDigitalOutputs[0].software_trigger,
                                       kDigitalOutputs[0].fifo_write,
                                       kDigitalOutputs[0].enable,
                                       kDigitalOutputs[0].delay_standard,
                                       kDigitalOutputs[1].width,
                                       kDigitalOutputs[1].event,
                                       kDigitalOutputs[1].mode,
                                       kDigitalOutputs[1].delay_enable,
                                       kDigitalOutputs[1].software_trigger,
                                       kDigitalOutputs[1].fifo_write,
                                       kDigitalOutputs[1].enable,
                                       kDigitalOutputs[1].delay_standard,
                                       kReverseMode,
                                       kReverseDistance,
                                       kDaIrqEnable,
                                       kDaDelayStandard,
                                       kExternalTriggerIrqEnable,
                                       kExternalTriggerLevel,
                                       kIspHeight,
                                       kIspReadoutMode,
                                       kIspBinning,
                                       kIspHotPixel,
                                       kIspFlipping,
                                       kBrightnessMax,
                                       kBrightnessMin,
                                       kEnhanceEnable,
                                       kEnhanceMax,
                                       kEnhanceMin,
                                       kEnhanceNum,
                                       kEnhanceGain,
                                       kMedianEnable,
                                       kErosionEnable,
                                       kErosionMax,
                                       kErosionMin,
                                       kErosionNum,
                                       kErosionStrategy,
                                       kRoiOffsetX,
                                       kRoiOffsetY,
                                       kPlDriveMode};

/** The register at a place, or null when software knows none there. */
constexpr const Register* FindRegister(Block block, std::uint32_t offset) {
  for (const Register& reg : kAllRegisters) {
    if (reg.block == block && reg.offset == offset) return &reg;
  }
  return nullptr;
}

}  // namespace VeltranoSDK::fpga

#endif
