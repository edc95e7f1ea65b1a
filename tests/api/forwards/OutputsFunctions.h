#pragma once

// Digital outputs and DA output.

#include "support/Calling.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

// Control words do not include bits 25 and 26, which make the FPGA act.
inline const std::vector<CalledFunction> kOutputsFunctions{
    {"SetOutWidth",
     {Calling(SetOutWidth, 0, 0).Changes(kReg.DO1_CTRL, 0xF9FFFFFF, 0xF9E00000),
      Calling(SetOutWidth, 0, 0x1FFFFF).Changes(kReg.DO1_CTRL, 0xF9E00000, 0xF9FFFFFF),
      Calling(SetOutWidth, 1, 0x200000).Changes(kReg.DO2_CTRL, 0x001FFFFF, 0),
      Calling(SetOutWidth, 1, kAllOnes).Changes(kReg.DO2_CTRL, 0, 0x1FFFFF),
      Calling(SetOutWidth, 2, 1).Fails("SetOutWidth invalid parameter!\n"),
      Calling(SetOutWidth, kAllOnes, 1).Fails("SetOutWidth invalid parameter!\n"),
      Calling(SetOutWidth, 0, 1).LosesAll()}},
    {"GetOutWidth",
     {Calling(GetOutWidth, 0).Reads(kReg.DO1_CTRL, 0xFFE00000).Returns(0),
      Calling(GetOutWidth, 1).Reads(kReg.DO2_CTRL, kAllOnes).Returns(0x1FFFFF),
      Calling(GetOutWidth, 2).FailsToGet("GetOutWidth invalid parameter!\n"),
      Calling(GetOutWidth, kAllOnes).FailsToGet("GetOutWidth invalid parameter!\n")}},
    {"SetOutEvent",
     {Calling(SetOutEvent, 0, 0).Changes(kReg.DO1_CTRL, 0xF9FFFFFF, 0xF99FFFFF),
      Calling(SetOutEvent, 0, 3).Changes(kReg.DO1_CTRL, 0, 0x00600000),
      Calling(SetOutEvent, 1, 4).Changes(kReg.DO2_CTRL, 0x00600000, 0),
      Calling(SetOutEvent, 1, kAllOnes).Changes(kReg.DO2_CTRL, 0, 0x00600000),
      Calling(SetOutEvent, 2, 1).Fails("SetOutEvent invalid parameter!\n"),
      Calling(SetOutEvent, kAllOnes, 1).Fails("SetOutEvent invalid parameter!\n"),
      Calling(SetOutEvent, 0, 1).LosesAll()}},
    // Event and mode are read, but the result is always 0.
    {"GetOutEvent",
     {Calling(GetOutEvent, 0).Reads(kReg.DO1_CTRL, kAllOnes).Returns(0),
      Calling(GetOutEvent, 1).Reads(kReg.DO2_CTRL, 0x00600000).Returns(0),
      Calling(GetOutEvent, 2).FailsToGet("GetOutEvent invalid parameter!\n"),
      Calling(GetOutEvent, kAllOnes).FailsToGet("GetOutEvent invalid parameter!\n")}},
    {"SetOutMode",
     {Calling(SetOutMode, 0, 0).Changes(kReg.DO1_CTRL, 0xF9FFFFFF, 0xF97FFFFF),
      Calling(SetOutMode, 0, 1).Changes(kReg.DO1_CTRL, 0, 0x00800000),
      Calling(SetOutMode, 1, 2).Changes(kReg.DO2_CTRL, 0x00800000, 0),
      Calling(SetOutMode, 1, kAllOnes).Changes(kReg.DO2_CTRL, 0, 0x00800000),
      Calling(SetOutMode, 2, 1).Fails("SetOutMode invalid parameter!\n"),
      Calling(SetOutMode, kAllOnes, 1).Fails("SetOutMode invalid parameter!\n"),
      Calling(SetOutMode, 0, 1).LosesAll()}},
    {"GetOutMode",
     {Calling(GetOutMode, 0).Reads(kReg.DO1_CTRL, kAllOnes).Returns(0),
      Calling(GetOutMode, 1).Reads(kReg.DO2_CTRL, 0x00800000).Returns(0),
      Calling(GetOutMode, 2).FailsToGet("GetOutMode invalid parameter!\n"),
      Calling(GetOutMode, kAllOnes).FailsToGet("GetOutMode invalid parameter!\n")}},
    // The output's mode is read first, and never prevents the change.
    {"SetOutDelayEn",
     {Calling(SetOutDelayEn, 0, 0)
          .Reads(kReg.DO1_CTRL, 0xF9FFFFFF)
          .Changes(kReg.DO1_CTRL, 0xF9FFFFFF, 0xF8FFFFFF),
      Calling(SetOutDelayEn, 0, 1).Reads(kReg.DO1_CTRL, 0).Changes(kReg.DO1_CTRL, 0, 0x01000000),
      Calling(SetOutDelayEn, 1, 2)
          .Reads(kReg.DO2_CTRL, 0x01800000)
          .Changes(kReg.DO2_CTRL, 0x01800000, 0x00800000),
      Calling(SetOutDelayEn, 1, kAllOnes)
          .Reads(kReg.DO2_CTRL, 0)
          .Changes(kReg.DO2_CTRL, 0, 0x01000000),
      Calling(SetOutDelayEn, 2, 1).Fails("SetOutDelayEn invalid parameter!\n"),
      Calling(SetOutDelayEn, kAllOnes, 1).Fails("SetOutDelayEn invalid parameter!\n"),
      Calling(SetOutDelayEn, 0, 1).LosesAll()}},
    {"GetOutDelayEn",
     {Calling(GetOutDelayEn, 0)
          .Reads(kReg.DO1_CTRL, 0xFEFFFFFF)
          .Reads(kReg.DO1_CTRL, 0xFEFFFFFF)
          .Returns(0),
      Calling(GetOutDelayEn, 1)
          .Reads(kReg.DO2_CTRL, 0x01800000)
          .Reads(kReg.DO2_CTRL, 0x01800000)
          .Returns(1),
      Calling(GetOutDelayEn, 2).FailsToGet("GetOutDelayEn invalid parameter!\n"),
      Calling(GetOutDelayEn, kAllOnes).FailsToGet("GetOutDelayEn invalid parameter!\n")}},
    // The trigger also ends a FIFO write that was left pending.
    {"OutputSWTrigger",
     {Calling(OutputSWTrigger, 0)
          .Reads(kReg.DO1_CTRL, 0x04000005)
          .Writes(kReg.DO1_CTRL, 0x06000005)
          .Sleeps(1)
          .Writes(kReg.DO1_CTRL, 0x00000005),
      Calling(OutputSWTrigger, 1)
          .Reads(kReg.DO2_CTRL, 0xF9FFFFFF)
          .Writes(kReg.DO2_CTRL, 0xFBFFFFFF)
          .Sleeps(1)
          .Writes(kReg.DO2_CTRL, 0xF9FFFFFF),
      Calling(OutputSWTrigger, 2).Fails("SWTrigger invalid parameter!\n"),
      Calling(OutputSWTrigger, kAllOnes).Fails("SWTrigger invalid parameter!\n"),
      Calling(OutputSWTrigger, 0).Sleeps(1).LosesAll()}},
    {"WRFifo",
     {Calling(WRFifo, 0)
          .Reads(kReg.DO1_CTRL, 0xF9FFFFFF)
          .Writes(kReg.DO1_CTRL, 0xFDFFFFFF)
          .Sleeps(1)
          .Writes(kReg.DO1_CTRL, 0xF9FFFFFF),
      Calling(WRFifo, 1)
          .Reads(kReg.DO2_CTRL, 0x06000005)
          .Writes(kReg.DO2_CTRL, 0x06000005)
          .Sleeps(1)
          .Writes(kReg.DO2_CTRL, 0x02000005),
      Calling(WRFifo, 2).Fails("WRFifo invalid parameter!\n"),
      Calling(WRFifo, kAllOnes).Fails("WRFifo invalid parameter!\n"),
      Calling(WRFifo, 0).Sleeps(1).LosesAll()}},
    {"SetDigitalOutputEnState",
     {Calling(SetDigitalOutputEnState, 0, 0).Changes(kReg.DO1_CTRL, 0xF9FFFFFF, 0xF1FFFFFF),
      Calling(SetDigitalOutputEnState, 0, 1).Changes(kReg.DO1_CTRL, 0, 0x08000000),
      Calling(SetDigitalOutputEnState, 1, 2).Changes(kReg.DO2_CTRL, 0x08000000, 0),
      Calling(SetDigitalOutputEnState, 1, kAllOnes).Changes(kReg.DO2_CTRL, 0, 0x08000000),
      Calling(SetDigitalOutputEnState, 2, 1).Fails("SetDigitalOutputEnState channel error!\n"),
      Calling(SetDigitalOutputEnState, kAllOnes, 1)
          .Fails("SetDigitalOutputEnState channel error!\n"),
      Calling(SetDigitalOutputEnState, 0, 1).LosesAll()}},
    // The DA output is a channel here. A wrong standard is reported before a wrong channel.
    {"SetExtTriDelayStandard",
     {Calling(SetExtTriDelayStandard, 0, 0).Changes(kReg.DO1_CTRL, 0xF9FFFFFF, 0xE9FFFFFF),
      Calling(SetExtTriDelayStandard, 1, 1).Changes(kReg.DO2_CTRL, 0, 0x10000000),
      Calling(SetExtTriDelayStandard, 2, 0).Changes(kReg.IRQ_CTRL, 0xFFFF0007, 0xFFFF0005),
      Calling(SetExtTriDelayStandard, 2, 1).Changes(kReg.IRQ_CTRL, 0xFFFF0005, 0xFFFF0007),
      Calling(SetExtTriDelayStandard, 0, 2).Fails("SetExtTriDelayStandard mode error!\n"),
      Calling(SetExtTriDelayStandard, 2, kAllOnes).Fails("SetExtTriDelayStandard mode error!\n"),
      Calling(SetExtTriDelayStandard, 3, 2).Fails("SetExtTriDelayStandard mode error!\n"),
      Calling(SetExtTriDelayStandard, 3, 1).Fails("SetExtTriDelayStandard channel error!\n"),
      Calling(SetExtTriDelayStandard, kAllOnes, 0).Fails("SetExtTriDelayStandard channel error!\n"),
      Calling(SetExtTriDelayStandard, 0, 1).LosesAll(),
      Calling(SetExtTriDelayStandard, 2, 1).LosesAll()}},
    {"SetOutDelay",
     {Calling(SetOutDelay, 0, 0)
          .Reads(kReg.DO1_CTRL, 0)
          .Writes(kReg.DO1_DELAY_L, 0)
          .Writes(kReg.DO1_DELAY_H, 0),
      Calling(SetOutDelay, 0, 3)
          .Reads(kReg.DO1_CTRL, 0)
          .Writes(kReg.DO1_DELAY_L, 150)
          .Writes(kReg.DO1_DELAY_H, 0),
      Calling(SetOutDelay, 1, 0x1'0000'0000)
          .Reads(kReg.DO2_CTRL, 0xEFFFFFFF)
          .Writes(kReg.DO2_DELAY_L, 0)
          .Writes(kReg.DO2_DELAY_H, 50),
      Calling(SetOutDelay, 0, ~uint64_t{0})
          .Reads(kReg.DO1_CTRL, 0)
          .Writes(kReg.DO1_DELAY_L, 0xFFFFFFCE)
          .Writes(kReg.DO1_DELAY_H, kAllOnes),
      Calling(SetOutDelay, 0, 3)
          .Reads(kReg.DO1_CTRL, 0x10000000)
          .Writes(kReg.DO1_DELAY_L, 3)
          .Writes(kReg.DO1_DELAY_H, 0),
      Calling(SetOutDelay, 1, 0x12'3456'7890)
          .Reads(kReg.DO2_CTRL, 0x10000000)
          .Writes(kReg.DO2_DELAY_L, 0x34567890)
          .Writes(kReg.DO2_DELAY_H, 0x12),
      Calling(SetOutDelay, 2, 1).Fails("SetOutDelay invalid parameter!\n"),
      Calling(SetOutDelay, kAllOnes, 1).Fails("SetOutDelay invalid parameter!\n"),
      Calling(SetOutDelay, 0, 1).LosesAll()}},
    {"GetOutDelay",
     {Calling(GetOutDelay, 0)
          .Reads(kReg.DO1_DELAY_L, 49)
          .Reads(kReg.DO1_DELAY_H, 50)
          .Reads(kReg.DO1_CTRL, 0)
          .Returns(0x1'0000'0000),
      Calling(GetOutDelay, 1)
          .Reads(kReg.DO2_DELAY_L, 150)
          .Reads(kReg.DO2_DELAY_H, 0)
          .Reads(kReg.DO2_CTRL, 0)
          .Returns(3),
      Calling(GetOutDelay, 1)
          .Reads(kReg.DO2_DELAY_L, 0x34567890)
          .Reads(kReg.DO2_DELAY_H, 0x12)
          .Reads(kReg.DO2_CTRL, 0x10000000)
          .Returns(0x12'3456'7890),
      Calling(GetOutDelay, 2).Fails("GetOutDelay invalid parameter!\n"),
      Calling(GetOutDelay, kAllOnes).Fails("GetOutDelay invalid parameter!\n")}},
    {"SetOutPolarity",
     {Calling(SetOutPolarity, 0, 0).Changes(kReg.POLARITY, kAllOnes, 0xFFFFFFEF),
      Calling(SetOutPolarity, 0, 1).Changes(kReg.POLARITY, 0, 0x10),
      Calling(SetOutPolarity, 1, 2).Changes(kReg.POLARITY, kAllOnes, 0xFFFFFFDF),
      Calling(SetOutPolarity, 1, kAllOnes).Changes(kReg.POLARITY, 0, 0x20),
      Calling(SetOutPolarity, 2, 1).Fails("SetOutPolarity invalid parameter!\n"),
      Calling(SetOutPolarity, kAllOnes, 1).Fails("SetOutPolarity invalid parameter!\n"),
      Calling(SetOutPolarity, 0, 1).LosesAll()}},
    {"SetDAOutputDelay",
     {Calling(SetDAOutputDelay, 0).Reads(kReg.IRQ_CTRL, 0).Writes(kReg.DA_OUTPUT_DELAY, 0),
      Calling(SetDAOutputDelay, 3).Reads(kReg.IRQ_CTRL, 5).Writes(kReg.DA_OUTPUT_DELAY, 150),
      Calling(SetDAOutputDelay, 85899346).Reads(kReg.IRQ_CTRL, 0).Writes(kReg.DA_OUTPUT_DELAY, 4),
      Calling(SetDAOutputDelay, 3).Reads(kReg.IRQ_CTRL, 2).Writes(kReg.DA_OUTPUT_DELAY, 3),
      Calling(SetDAOutputDelay, kAllOnes)
          .Reads(kReg.IRQ_CTRL, 2)
          .Writes(kReg.DA_OUTPUT_DELAY, kAllOnes),
      Calling(SetDAOutputDelay, 3).LosesAll()}},
    {"SetDADelayState",
     {Calling(SetDADelayState, 2).Fails(), Calling(SetDADelayState, kAllOnes).Fails()}},
};

}  // namespace tessaline_test
