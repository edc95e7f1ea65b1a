#pragma once

// Laser-line extraction, reconstruction and acquisition.

#include "support/Calling.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

// The routing of laser lines (0) or images (1).
inline Calling Routing(unsigned int mode) {
  constexpr std::uint32_t kOff = kStreamSwitchPortOff;
  return Calling(SetCollectMode, mode)
      .Writes(StreamSwitchPort(Block::kImage2, 0), mode == 0 ? 0 : kOff)
      .Writes(StreamSwitchPort(Block::kImage2, 1), mode == 0 ? kOff : 0)
      .Writes(kReg.COLLECT_MODE, mode)
      .Writes(StreamSwitchPort(Block::kImage4, 0), mode)
      .Changes(kReg.EXPOSURE_NUM, 0xFFFFFFF7, mode == 0 ? 0xF : 0xBB87)
      .Writes(StreamSwitchControl(Block::kImage2), 2)
      .Writes(StreamSwitchControl(Block::kImage4), 2)
      .Sleeps(1000);
}

inline Calling SamplingLightLine(int first = 1, int second = 2, int third = 3) {
  return Calling(SetSampleLightLineParam, first, second, third, 4, 5)
      .Writes(kReg.RECONSTRUCTION_START_X, static_cast<std::uint32_t>(first))
      .Writes(kReg.RECONSTRUCTION_STEP_X, static_cast<std::uint32_t>(second))
      .Writes(kReg.RECONSTRUCTION_CNT_X, static_cast<std::uint32_t>(third))
      .Writes(kReg.SAMPLE_LINE_PARAM_4, 4)
      .Writes(kReg.SAMPLE_LINE_PARAM_5, 5);
}

inline const std::vector<CalledFunction> kStripFunctions{
    // The library remembers the mode without reading the FPGA, and changes it once the exposures
    // have changed. Exposures of all ones count as not read.
    {"SetCollectMode",
     {Calling(SetCollectMode, 2).Fails("SetCollectMode error mode error\n"),
      Calling(SetCollectMode, kAllOnes).Fails("SetCollectMode error mode error\n"),
      Calling(SetCollectMode, 0).LosesAll().Fails("SetCollectMode error\n"),
      Routing(0).FailsAt(0, "SetCollectMode error\n"),
      Routing(0).FailsAt(1, "SetCollectMode error\n"),
      Routing(0).FailsAt(2, "SetCollectMode error\n"),
      Routing(0).FailsAt(3, "SetCollectMode error\n"),
      Routing(0).FailsAt(4, "SetCollectMode error\n"),
      Routing(0).FailsAt(5, "SetCollectMode error\n"),
      Calling(SetCollectMode, 0)
          .Writes(StreamSwitchPort(Block::kImage2, 0), 0)
          .Writes(StreamSwitchPort(Block::kImage2, 1), kStreamSwitchPortOff)
          .Writes(kReg.COLLECT_MODE, 0)
          .Writes(StreamSwitchPort(Block::kImage4, 0), 0)
          .Reads(kReg.EXPOSURE_NUM, kAllOnes)
          .Fails("SetCollectMode error\n"),
      Calling(GetCollectMode).Returns(1),
      Routing(0).FailsAt(6, "SetEnableSignal error\n"),
      Calling(GetCollectMode).Returns(0),
      Routing(1),
      Calling(GetCollectMode).Returns(1),
      Routing(0).FailsAt(7, "SetEnableSignal error\n"),
      Calling(GetCollectMode).Returns(0),
      Routing(1),
      Routing(0),
      Calling(GetCollectMode).Returns(0)}},
    {"GetCollectMode", {Calling(GetCollectMode).Returns(1)}},
    {"SetStripDataMode",
     {Calling(SetStripDataMode, 0).Writes(kReg.STRIP_DATA_MODE, 0),
      Calling(SetStripDataMode, 1).Writes(kReg.STRIP_DATA_MODE, 1),
      Calling(SetStripDataMode, kAllOnes).Writes(kReg.STRIP_DATA_MODE, kAllOnes),
      Calling(SetStripDataMode, 1).LosesAll().Fails()}},
    {"GetStripDataMode",
     {Calling(GetStripDataMode).Reads(kReg.STRIP_DATA_MODE, 0).Returns(0),
      Calling(GetStripDataMode).Reads(kReg.STRIP_DATA_MODE, kAllOnes).Returns(kAllOnes)}},
    {"SetStripWriteMemMode",
     {Calling(SetStripWriteMemMode, 0)
          .Writes(kReg.STRIP_WRIMEM_STRATEGY, 0)
          .Writes(kReg.STRIP_WRIMEM_STRATEGY_WIDTH, 0),
      Calling(SetStripWriteMemMode, kAllOnes)
          .Writes(kReg.STRIP_WRIMEM_STRATEGY, kAllOnes)
          .Writes(kReg.STRIP_WRIMEM_STRATEGY_WIDTH, kAllOnes),
      Calling(SetStripWriteMemMode, 1)
          .LosesAccess(0)
          .Fails("SetStripWriteMemMode fpga_write_addr STRIP_WRIMEM_STRATEGY_WIDTH error\n"),
      Calling(SetStripWriteMemMode, 1)
          .Writes(kReg.STRIP_WRIMEM_STRATEGY, 1)
          .LosesAccess(1)
          .Fails("SetStripWriteMemMode fpga_write_addr STRIP_WRIMEM_STRATEGY_WIDTH error\n")}},
    {"SetRisThresholdValue",
     {Calling(SetRisThresholdValue, 0).Writes(kReg.RIS_THRESHOLD, 0),
      Calling(SetRisThresholdValue, 255).Writes(kReg.RIS_THRESHOLD, 255),
      Calling(SetRisThresholdValue, 256).Writes(kReg.RIS_THRESHOLD, 255),
      Calling(SetRisThresholdValue, kAllOnes).Writes(kReg.RIS_THRESHOLD, 255),
      Calling(SetRisThresholdValue, 1).LosesAll().Fails("SetRisThresholdValue error\n")}},
    {"GetRisThresholdValue",
     {Calling(GetRisThresholdValue).Reads(kReg.RIS_THRESHOLD, 31).Returns(31),
      Calling(GetRisThresholdValue).Reads(kReg.RIS_THRESHOLD, kAllOnes).Returns(kAllOnes)}},
    {"SetStripWidthMin",
     {Calling(SetStripWidthMin, 0).Writes(kReg.STRIP_WIDTH_MIN, 1),
      Calling(SetStripWidthMin, 1).Writes(kReg.STRIP_WIDTH_MIN, 1),
      Calling(SetStripWidthMin, 128).Writes(kReg.STRIP_WIDTH_MIN, 128),
      Calling(SetStripWidthMin, 129).Writes(kReg.STRIP_WIDTH_MIN, 128),
      Calling(SetStripWidthMin, kAllOnes).Writes(kReg.STRIP_WIDTH_MIN, 128),
      Calling(SetStripWidthMin, 1).LosesAll().Fails("SetStripWidthMin error\n")}},
    {"GetStripWidthMin",
     {Calling(GetStripWidthMin).Reads(kReg.STRIP_WIDTH_MIN, 3).Returns(3),
      Calling(GetStripWidthMin).Reads(kReg.STRIP_WIDTH_MIN, kAllOnes).Returns(kAllOnes)}},
    {"SetStripWidthMax",
     {Calling(SetStripWidthMax, 0).Writes(kReg.STRIP_WIDTH_MAX, 1),
      Calling(SetStripWidthMax, 1).Writes(kReg.STRIP_WIDTH_MAX, 1),
      Calling(SetStripWidthMax, 128).Writes(kReg.STRIP_WIDTH_MAX, 128),
      Calling(SetStripWidthMax, 129).Writes(kReg.STRIP_WIDTH_MAX, 128),
      Calling(SetStripWidthMax, kAllOnes).Writes(kReg.STRIP_WIDTH_MAX, 128),
      Calling(SetStripWidthMax, 1).LosesAll().Fails("SetStripWidthMax error\n")}},
    {"GetStripWidthMax",
     {Calling(GetStripWidthMax).Reads(kReg.STRIP_WIDTH_MAX, 33).Returns(33),
      Calling(GetStripWidthMax).Reads(kReg.STRIP_WIDTH_MAX, kAllOnes).Returns(kAllOnes)}},
    {"SetMeasuringRange",
     {Calling(SetMeasuringRange, 0, 0x3FFFFFF)
          .Writes(kReg.MEASURING_RANGE_START, 0)
          .Writes(kReg.MEASURING_RANGE_END, 0x3FFFFFF),
      Calling(SetMeasuringRange, kAllOnes, 0x4000000)
          .Writes(kReg.MEASURING_RANGE_START, 0x3FFFFFF)
          .Writes(kReg.MEASURING_RANGE_END, 0),
      Calling(SetMeasuringRange, 1, 2).LosesAll()}},
    {"SetRoiOffset",
     {Calling(SetRoiOffset, 0, 0).Changes(kReg.ROI_OFFSET, kAllOnes, 0xFE000000),
      Calling(SetRoiOffset, 0xFFF, 0).Changes(kReg.ROI_OFFSET, 0, 0xFFF),
      Calling(SetRoiOffset, 0, 0x1FFF).Changes(kReg.ROI_OFFSET, 0, 0x1FFF000),
      Calling(SetRoiOffset, 0x1000, 0x2000).Changes(kReg.ROI_OFFSET, kAllOnes, 0xFE000000),
      Calling(SetRoiOffset, kAllOnes, kAllOnes).Changes(kReg.ROI_OFFSET, 0x02000000, 0x03FFFFFF),
      Calling(SetRoiOffset, 1, 1).LosesAll()}},
    // The last two failures print the texts of the second and third.
    {"SetSampleLightLineParam",
     {SamplingLightLine(-1, INT32_MIN, INT32_MAX),
      SamplingLightLine().FailsAt(
          0, "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_START_X error\n"),
      SamplingLightLine().FailsAt(
          1, "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_STEP_X error\n"),
      SamplingLightLine().FailsAt(
          2, "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_CNT_X error\n"),
      SamplingLightLine().FailsAt(
          3, "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_STEP_X error\n"),
      SamplingLightLine().FailsAt(
          4, "SetSampleLightLineParam fpga_write_addr RECONSTRUCTION_CNT_X error\n")}},
    // One flag after the other: the continuous one has precedence.
    {"SetBrFlag",
     {Calling(SetBrFlag, 0).Writes(kReg.BR_CONT_MODE_A, 0).Writes(kReg.BR_CONT_MODE_B, 0),
      Calling(SetBrFlag, 1).Writes(kReg.BR_CONT_MODE_A, 1).Writes(kReg.BR_CONT_MODE_B, 1),
      Calling(SetBrFlag, kAllOnes).Writes(kReg.BR_CONT_MODE_A, 1).Writes(kReg.BR_CONT_MODE_B, 1),
      Calling(SetContinuousFlag, 1).Writes(kReg.BR_CONT_MODE_A, 2).Writes(kReg.BR_CONT_MODE_B, 2),
      Calling(SetBrFlag, 1).Writes(kReg.BR_CONT_MODE_A, 2).Writes(kReg.BR_CONT_MODE_B, 2)}},
    {"SetContinuousFlag",
     {Calling(SetContinuousFlag, 0).Writes(kReg.BR_CONT_MODE_A, 0).Writes(kReg.BR_CONT_MODE_B, 0),
      Calling(SetContinuousFlag, 1).Writes(kReg.BR_CONT_MODE_A, 2).Writes(kReg.BR_CONT_MODE_B, 2),
      Calling(SetContinuousFlag, kAllOnes)
          .Writes(kReg.BR_CONT_MODE_A, 2)
          .Writes(kReg.BR_CONT_MODE_B, 2),
      Calling(SetBrFlag, 1).Writes(kReg.BR_CONT_MODE_A, 2).Writes(kReg.BR_CONT_MODE_B, 2),
      Calling(SetContinuousFlag, 0).Writes(kReg.BR_CONT_MODE_A, 1).Writes(kReg.BR_CONT_MODE_B, 1)}},
    {"ResetFrameID",
     {Calling(ResetFrameID)
          .Writes(kReg.FRAME_ID_RESET, 1)
          .Sleeps(1)
          .Writes(kReg.FRAME_ID_RESET, 0)
          .Sleeps(1),
      Calling(ResetFrameID).Sleeps(1).Sleeps(1).LosesAll()}},
    {"GetCallbackLostNum",
     {Calling(GetCallbackLostNum).Reads(kReg.CALLBACK_LOST_NUM, 0).Returns(0),
      Calling(GetCallbackLostNum).Reads(kReg.CALLBACK_LOST_NUM, kAllOnes).Returns(kAllOnes)}},
    // Takes effect, and yet returns a failure.
    {"ResetCallbackLostNum",
     {Calling(ResetCallbackLostNum)
          .Writes(kReg.CALLBACK_LOST_RESET, 1)
          .Sleeps(1)
          .Writes(kReg.CALLBACK_LOST_RESET, 0)
          .Sleeps(1)
          .Fails()}},
    {"GetStripReleaseNum", {Calling(GetStripReleaseNum).Returns(0)}},
    {"ResetStripReleaseNum", {Calling(ResetStripReleaseNum).Returns(0)}},
};

}  // namespace tessaline_test
