#pragma once

#include "Rule.h"

namespace reliability {

// Results when a register cannot be mapped: a read returns all ones, a write is lost. Most setters
// do not check their writes; those that do, and the getters, are here.

inline constexpr std::string_view kAllOnes = "4294967295";
inline constexpr std::string_view kCollectModeCalls = "SetCollectMode(0)|SetCollectMode(1)";
inline constexpr std::string_view kPipelineSetters =
    "SetBinEnable|SetHotpixelEnable|SetObOffset|SetBriThresMax|SetBriThresMin|SetEnhanceEnable|"
    "SetEnhanceThresMax|SetEnhanceThresMin|SetEnhanceThresNum|SetEnhanceGain|"
    "SetMedianFilterEnable|SetErosionFilterEnable|SetErosionThresMax|SetErosionThresMin|"
    "SetErosionThresNum|SetErosionFilterStrategy";

constexpr Rule Unmapped(std::string_view access = {}) { return On("fpga", "mmap").For(access); }

inline constexpr std::array kRegisterRules{
    // Writes whose failure is printed for any caller
    Unmapped("write REBUILD_BLOCK_1 STRIP_IMAGE_WIDTH")
        .Tells("SetImageSize fpga_write_addr STRIP_IMAGE_WIDTH error\n")
        .Returns(kSame),
    Unmapped("write REBUILD_BLOCK_1 STRIP_IMAGE_HEIGHT")
        .Tells("SetImageSize fpga_write_addr STRIP_IMAGE_HEIGHT error\n")
        .Returns(kSame),
    Unmapped("write REBUILD_BLOCK_6 STRIP_SELECTOR_IMAGE_WIDTH")
        .Tells("SetStripSelectorImgWidth fpga_write_addr STRIP_SELECTOR_IMAGE_WIDTH error\n")
        .Returns(kSame),
    Unmapped("write")
        .During("SetRisThresholdValue")
        .Tells("SetRisThresholdValue error\n")
        .Returns("-1"),
    Unmapped("write").During("SetStripWidthMin").Tells("SetStripWidthMin error\n").Returns("-1"),
    Unmapped("write").During("SetStripWidthMax").Tells("SetStripWidthMax error\n").Returns("-1"),
    Unmapped("write")
        .During("SetStripWriteMemMode")
        .Tells("SetStripWriteMemMode fpga_write_addr STRIP_WRIMEM_STRATEGY_WIDTH error\n")
        .Returns("-1"),
    Unmapped("write REBUILD_BLOCK_5 RECONSTRUCTION_START_X")
        .During("SetSampleLightLineParam")
        .Tells("SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_START_X error\n")
        .Returns("-1"),
    // The last two are reported with the names of the second and third.
    Unmapped("write REBUILD_BLOCK_5 RECONSTRUCTION_STEP_X|"
             "write REBUILD_BLOCK_5 SAMPLE_LINE_PARAM_4")
        .During("SetSampleLightLineParam")
        .Tells("SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_STEP_X error\n")
        .Returns("-1"),
    Unmapped("write REBUILD_BLOCK_5 RECONSTRUCTION_CNT_X|"
             "write REBUILD_BLOCK_5 SAMPLE_LINE_PARAM_5")
        .During("SetSampleLightLineParam")
        .Tells("SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_CNT_X error\n")
        .Returns("-1"),

    // The data path
    Unmapped("write IMAGE_BLOCK_2 STREAM_SWITCH_CTRL|"
             "write IMAGE_BLOCK_4 STREAM_SWITCH_CTRL")
        .During(kCollectModeCalls)
        .Tells("SetEnableSignal error\n")
        .Returns("-1"),
    // Some products set the exposure count once more after the eight writes.
    Unmapped()
        .During(kCollectModeCalls)
        .AmongTheFirst(8)
        .Tells("SetCollectMode error\n")
        .Returns("-1"),
    // Here the memory's first port is reported with the text of the mode.
    Unmapped("write IMAGE_BLOCK_4 STREAM_SWITCH_PORT_0")
        .During("RegisterHardwareInit")
        .Tells("SetCollectMode error\n")
        .Returns(kSame),
    Unmapped("write IMAGE_BLOCK_2 STREAM_SWITCH|write IMAGE_BLOCK_4 STREAM_SWITCH")
        .During("RegisterHardwareInit")
        .Tells("SetEnableSignal error\n")
        .Returns(kSame),
    Unmapped("write REBUILD_BLOCK_4 COLLECT_MODE")
        .During("RegisterHardwareInit")
        .Tells("SetCollectMode error\n")
        .Returns(kSame),

    // Writes whose failure shows only in the result
    Unmapped("write").During(kPipelineSetters).Returns("-1"),
    Unmapped("write").During("SetExposureNum|SetStripDataMode").Returns("-1"),
    Unmapped().During("fpga_write_addr|fpga_read_addr").Returns(kAllOnes),

    // Reads: all ones, or the meaning of a field of all ones. In a mode of all ones neither door
    // control nor the reverse distance exists.
    Unmapped("read")
        .During("SetDoorControlEn")
        .AmongTheFirst(1)
        .Tells("SetDoorControlEn TriMode invalid parameter!\n")
        .Returns("-1"),
    Unmapped("read")
        .During("GetDoorControlEn")
        .AmongTheFirst(1)
        .Tells("GetDoorControlEn TriMode invalid parameter!\n")
        .Returns(kAllOnes),
    Unmapped("read").During("GetDoorControlEn").Returns("1"),
    Unmapped("read")
        .During("SetReverseDistance")
        .AmongTheFirst(1)
        .Tells("SetReverseDistance ReverseMode invalid parameter!\n")
        .Returns("-1"),
    Unmapped("read")
        .During("GetReverseDistance")
        .AmongTheFirst(1)
        .Tells("GetReverseDistance ReverseMode invalid parameter!\n")
        .Returns(kAllOnes),
    Unmapped("read").During("GetReverseDistance").Returns("1023"),
    Unmapped("read")
        .During("GetTriSpacing|GetRisThresholdValue|GetStripWidthMin|GetStripWidthMax|"
                "GetStripDataMode")
        .Returns(kAllOnes),
    Unmapped("read IMAGE_BLOCK_3 TRI_DELAY").During("GetTriDelay").Returns(kAllOnes),
    Unmapped("read")
        .During("GetTriDelayStandard|GetGlobalControl|GetMasterState|GetOutDelayEn")
        .Returns("1"),
    Unmapped("read").During("GetReverseMode_io").Returns("3"),
    Unmapped("read").During("GetMasterConctrolID").Returns("15"),
    Unmapped("read").During("GetOutWidth").Returns("2097151"),
    Unmapped("read IMAGE_BLOCK_3 DO1_DELAY_L").During("GetOutDelay").Returns(kAllOnes),
    // 5000 in the lower half
    Unmapped("read IMAGE_BLOCK_3 DO1_DELAY_H")
        .During("GetOutDelay")
        .Returns("18446744069414589320"),
    Unmapped("read").During("GetExposureNum").Returns("7"),
};

}  // namespace reliability
