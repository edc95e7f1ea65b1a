#pragma once

#include "Rule.h"

namespace reliability {

// What comes out when a register cannot be mapped: a read gives all ones, a write is lost.
// Most setters do not look at their writes; those that do, and the getters, are here.

inline constexpr std::string_view kAllOnes = "4294967295";
inline constexpr std::string_view kCollectModeCalls = "SetCollectMode(0)|SetCollectMode(1)";
inline constexpr std::string_view kPipelineSetters =
    "SetBinEnable|SetHotpixelEnable|SetObOffset|SetBriThresMax|SetBriThresMin|SetEnhanceEnable|"
    "SetEnhanceThresMax|SetEnhanceThresMin|SetEnhanceThresNum|SetEnhanceGain|"
    "SetMedianFilterEnable|SetErosionFilterEnable|SetErosionThresMax|SetErosionThresMin|"
    "SetErosionThresNum|SetErosionFilterStrategy";

// `text` is a line of its own.
constexpr Rule Unmapped(std::string_view during, std::string_view access, std::string_view text,
                        std::string_view result) {
  return {"", "fpga", "mmap", during, false, Effect::kTold, {text}, result, "", access};
}

// In the first accesses of the function only.
constexpr Rule UnmappedAmong(unsigned most, std::string_view during, std::string_view access,
                             std::string_view text, std::string_view result) {
  return {"", "fpga", "mmap", during, false, Effect::kTold, {text}, result, "", access, most};
}

inline constexpr std::array kRegisterRules{
    // Writes that are told, whoever makes them
    Unmapped("", "write REBUILD_BLOCK_1 STRIP_IMAGE_WIDTH",
             "SetImageSize fpga_write_addr STRIP_IMAGE_WIDTH error\n", kSame),
    Unmapped("", "write REBUILD_BLOCK_1 STRIP_IMAGE_HEIGHT",
             "SetImageSize fpga_write_addr STRIP_IMAGE_HEIGHT error\n", kSame),
    Unmapped("", "write REBUILD_BLOCK_6 STRIP_SELECTOR_IMAGE_WIDTH",
             "SetStripSelectorImgWidth fpga_write_addr STRIP_SELECTOR_IMAGE_WIDTH error\n", kSame),
    Unmapped("SetRisThresholdValue", "write", "SetRisThresholdValue error\n", "-1"),
    Unmapped("SetStripWidthMin", "write", "SetStripWidthMin error\n", "-1"),
    Unmapped("SetStripWidthMax", "write", "SetStripWidthMax error\n", "-1"),
    Unmapped("SetStripWriteMemMode", "write",
             "SetStripWriteMemMode fpga_write_addr STRIP_WRIMEM_STRATEGY_WIDTH error\n", "-1"),
    Unmapped("SetSampleLightLineParam", "write REBUILD_BLOCK_5 RECONSTRUCTION_START_X",
             "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_START_X error\n", "-1"),
    // The last two are told by the names of the second and the third.
    Unmapped("SetSampleLightLineParam",
             "write REBUILD_BLOCK_5 RECONSTRUCTION_STEP_X|"
             "write REBUILD_BLOCK_5 SAMPLE_LINE_PARAM_4",
             "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_STEP_X error\n", "-1"),
    Unmapped("SetSampleLightLineParam",
             "write REBUILD_BLOCK_5 RECONSTRUCTION_CNT_X|"
             "write REBUILD_BLOCK_5 SAMPLE_LINE_PARAM_5",
             "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_CNT_X error\n", "-1"),

    // The data path
    Unmapped(kCollectModeCalls,
             "write IMAGE_BLOCK_2 STREAM_SWITCH_CTRL|"
             "write IMAGE_BLOCK_4 STREAM_SWITCH_CTRL",
             "SetEnableSignal error\n", "-1"),
    // What follows the eight is the exposure count once more, of some products.
    UnmappedAmong(8, kCollectModeCalls, "", "SetCollectMode error\n", "-1"),
    // Here the memory's first port is told as the mode is.
    Unmapped("RegisterHardwareInit", "write IMAGE_BLOCK_4 STREAM_SWITCH_PORT_0",
             "SetCollectMode error\n", kSame),
    Unmapped("RegisterHardwareInit",
             "write IMAGE_BLOCK_2 STREAM_SWITCH|write IMAGE_BLOCK_4 STREAM_SWITCH",
             "SetEnableSignal error\n", kSame),
    Unmapped("RegisterHardwareInit", "write REBUILD_BLOCK_4 COLLECT_MODE", "SetCollectMode error\n",
             kSame),

    // Writes that show in the result alone
    Unmapped(kPipelineSetters, "write", "", "-1"),
    Unmapped("SetExposureNum|SetStripDataMode", "write", "", "-1"),
    Unmapped("fpga_write_addr|fpga_read_addr", "", "", kAllOnes),

    // Reads: all ones, or what a field of all ones means. A mode of all ones is none in which
    // door control, or the reverse distance, exists.
    UnmappedAmong(1, "SetDoorControlEn", "read", "SetDoorControlEn TriMode invalid parameter!\n",
                  "-1"),
    UnmappedAmong(1, "GetDoorControlEn", "read", "GetDoorControlEn TriMode invalid parameter!\n",
                  kAllOnes),
    Unmapped("GetDoorControlEn", "read", "", "1"),
    UnmappedAmong(1, "SetReverseDistance", "read",
                  "SetReverseDistance ReverseMode invalid parameter!\n", "-1"),
    UnmappedAmong(1, "GetReverseDistance", "read",
                  "GetReverseDistance ReverseMode invalid parameter!\n", kAllOnes),
    Unmapped("GetReverseDistance", "read", "", "1023"),
    Unmapped("GetTriSpacing|GetRisThresholdValue|GetStripWidthMin|GetStripWidthMax|"
             "GetStripDataMode",
             "read", "", kAllOnes),
    Unmapped("GetTriDelay", "read IMAGE_BLOCK_3 TRI_DELAY", "", kAllOnes),
    Unmapped("GetTriDelayStandard|GetGlobalControl|GetMasterState|GetOutDelayEn", "read", "", "1"),
    Unmapped("GetReverseMode_io", "read", "", "3"),
    Unmapped("GetMasterConctrolID", "read", "", "15"),
    Unmapped("GetOutWidth", "read", "", "2097151"),
    Unmapped("GetOutDelay", "read IMAGE_BLOCK_3 DO1_DELAY_L", "", kAllOnes),
    // 5000 in its lower half
    Unmapped("GetOutDelay", "read IMAGE_BLOCK_3 DO1_DELAY_H", "", "18446744069414589320"),
    Unmapped("GetExposureNum", "read", "", "7"),
};

}  // namespace reliability
