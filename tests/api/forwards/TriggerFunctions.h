#pragma once

// Trigger, encoder, synchronisation.

#include "support/Calling.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

inline const std::vector<CalledFunction> kTriggerFunctions{
    {"SetTriMode",
     {Calling(SetTriMode, 0).Changes(TRIGGER_CTRL, 0xFFFFFFB7, 0xFFFFFFB4),
      Calling(SetTriMode, 3).Changes(TRIGGER_CTRL, 0x34, 0x37),
      Calling(SetTriMode, 4).Changes(TRIGGER_CTRL, 0x37, 0x34),
      Calling(SetTriMode, kAllOnes).Changes(TRIGGER_CTRL, 0x34, 0x37),
      Calling(SetTriMode, 1).LosesAll()}},
    {"TricontrolSWTrigger",
     {Calling(TricontrolSWTrigger)
          .Reads(TRIGGER_CTRL, 0xFFFFFFB3)
          .Writes(TRIGGER_CTRL, 0xFFFFFFBB)
          .Sleeps(1)
          .Writes(TRIGGER_CTRL, 0xFFFFFFB3),
      Calling(TricontrolSWTrigger)
          .Reads(TRIGGER_CTRL, 0x3B)
          .Writes(TRIGGER_CTRL, 0x3B)
          .Sleeps(1)
          .Writes(TRIGGER_CTRL, 0x33),
      Calling(TricontrolSWTrigger).Sleeps(1).LosesAll()}},
    // Microseconds, at least 2, and in mode 1 pulses. 32 bits of ticks are not more
    // than 85899345 microseconds.
    {"SetTriSpacing",
     {Calling(SetTriSpacing, 0).Reads(TRIGGER_CTRL, 0).Writes(TRI_SPACING, 100),
      Calling(SetTriSpacing, 1).Reads(TRIGGER_CTRL, 2).Writes(TRI_SPACING, 100),
      Calling(SetTriSpacing, 2).Reads(TRIGGER_CTRL, 3).Writes(TRI_SPACING, 100),
      Calling(SetTriSpacing, 3).Reads(TRIGGER_CTRL, 0x34).Writes(TRI_SPACING, 150),
      Calling(SetTriSpacing, 1000).Reads(TRIGGER_CTRL, 0).Writes(TRI_SPACING, 50000),
      Calling(SetTriSpacing, 85899345).Reads(TRIGGER_CTRL, 0).Writes(TRI_SPACING, 0xFFFFFFD2),
      Calling(SetTriSpacing, 85899346).Reads(TRIGGER_CTRL, 0).Writes(TRI_SPACING, 4),
      Calling(SetTriSpacing, 0).Reads(TRIGGER_CTRL, 1).Writes(TRI_SPACING, 0),
      Calling(SetTriSpacing, 1).Reads(TRIGGER_CTRL, 0x35).Writes(TRI_SPACING, 1),
      Calling(SetTriSpacing, kAllOnes).Reads(TRIGGER_CTRL, 1).Writes(TRI_SPACING, kAllOnes),
      Calling(SetTriSpacing, 1).LosesAll()}},
    {"GetTriSpacing",
     {Calling(GetTriSpacing).Reads(TRI_SPACING, 0).Returns(0),
      Calling(GetTriSpacing).Reads(TRI_SPACING, 50001).Returns(50001),
      Calling(GetTriSpacing).Reads(TRI_SPACING, kAllOnes).Returns(kAllOnes)}},
    {"SetDoorControlEn",
     {Calling(SetDoorControlEn, 0)
          .Reads(TRIGGER_CTRL, 0xFFFFFFB5)
          .Changes(TRIGGER_CTRL, 0xFFFFFFB5, 0xFFFFFFB1),
      Calling(SetDoorControlEn, 1).Reads(TRIGGER_CTRL, 0).Changes(TRIGGER_CTRL, 0, 4),
      Calling(SetDoorControlEn, 2).Reads(TRIGGER_CTRL, 5).Changes(TRIGGER_CTRL, 5, 1),
      Calling(SetDoorControlEn, kAllOnes).Reads(TRIGGER_CTRL, 1).Changes(TRIGGER_CTRL, 1, 5),
      Calling(SetDoorControlEn, 1)
          .Reads(TRIGGER_CTRL, 2)
          .Fails("SetDoorControlEn TriMode invalid parameter!\n"),
      Calling(SetDoorControlEn, 0)
          .Reads(TRIGGER_CTRL, 3)
          .Fails("SetDoorControlEn TriMode invalid parameter!\n"),
      Calling(SetDoorControlEn, 1).Reads(TRIGGER_CTRL, 0).Reads(TRIGGER_CTRL, 0).LosesAccess(2)}},
    {"GetDoorControlEn",
     {Calling(GetDoorControlEn).Reads(TRIGGER_CTRL, 5).Reads(TRIGGER_CTRL, 5).Returns(1),
      Calling(GetDoorControlEn).Reads(TRIGGER_CTRL, 0x70).Reads(TRIGGER_CTRL, 0x70).Returns(0),
      Calling(GetDoorControlEn)
          .Reads(TRIGGER_CTRL, 6)
          .FailsToGet("GetDoorControlEn TriMode invalid parameter!\n"),
      Calling(GetDoorControlEn)
          .Reads(TRIGGER_CTRL, 3)
          .FailsToGet("GetDoorControlEn TriMode invalid parameter!\n")}},
    {"SetTriDelayStandard",
     {Calling(SetTriDelayStandard, 0).Changes(TRIGGER_CTRL, 0xFFFFFFB7, 0xFFFFFF97),
      Calling(SetTriDelayStandard, 1).Changes(TRIGGER_CTRL, 0x17, 0x37),
      Calling(SetTriDelayStandard, 2).Changes(TRIGGER_CTRL, 0x37, 0x17),
      Calling(SetTriDelayStandard, kAllOnes).Changes(TRIGGER_CTRL, 0, 0x20),
      Calling(SetTriDelayStandard, 1).LosesAll()}},
    {"GetTriDelayStandard",
     {Calling(GetTriDelayStandard).Reads(TRIGGER_CTRL, 0x20).Returns(1),
      Calling(GetTriDelayStandard).Reads(TRIGGER_CTRL, 0xFFFFFFDF).Returns(0)}},
    {"SetDelayEn",
     {Calling(SetDelayEn, 0).Changes(TRIGGER_CTRL, 0xFFFFFFB7, 0xFFFFFFA7),
      Calling(SetDelayEn, 1).Changes(TRIGGER_CTRL, 0x27, 0x37),
      Calling(SetDelayEn, 2).Changes(TRIGGER_CTRL, 0x37, 0x27),
      Calling(SetDelayEn, kAllOnes).Changes(TRIGGER_CTRL, 0, 0x10),
      Calling(SetDelayEn, 1).LosesAll()}},
    {"SetTriDelay",
     {Calling(SetTriDelay, 0).Reads(TRIGGER_CTRL, 0).Writes(TRI_DELAY, 0),
      Calling(SetTriDelay, 7).Reads(TRIGGER_CTRL, 0x13).Writes(TRI_DELAY, 350),
      Calling(SetTriDelay, 85899345).Reads(TRIGGER_CTRL, 0).Writes(TRI_DELAY, 0xFFFFFFD2),
      Calling(SetTriDelay, 85899346).Reads(TRIGGER_CTRL, 0).Writes(TRI_DELAY, 4),
      Calling(SetTriDelay, 7).Reads(TRIGGER_CTRL, 0x20).Writes(TRI_DELAY, 7),
      Calling(SetTriDelay, kAllOnes).Reads(TRIGGER_CTRL, 0x20).Writes(TRI_DELAY, kAllOnes),
      Calling(SetTriDelay, 1).LosesAll()}},
    {"GetTriDelay",
     {Calling(GetTriDelay).Reads(TRI_DELAY, 49).Reads(TRIGGER_CTRL, 0).Returns(0),
      Calling(GetTriDelay).Reads(TRI_DELAY, 399).Reads(TRIGGER_CTRL, 0x13).Returns(7),
      Calling(GetTriDelay).Reads(TRI_DELAY, kAllOnes).Reads(TRIGGER_CTRL, 0).Returns(85899345),
      Calling(GetTriDelay).Reads(TRI_DELAY, 399).Reads(TRIGGER_CTRL, 0x20).Returns(399)}},
    {"SetReverseMode_io",
     {Calling(SetReverseMode_io, 0).Changes(REVERSE_CTRL, kAllOnes, 0xFFFFFFFC),
      Calling(SetReverseMode_io, 3).Changes(REVERSE_CTRL, 0xFFC, 0xFFF),
      Calling(SetReverseMode_io, 4).Changes(REVERSE_CTRL, 0xFFF, 0xFFC),
      Calling(SetReverseMode_io, kAllOnes).Changes(REVERSE_CTRL, 0, 3),
      Calling(SetReverseMode_io, 1).LosesAll()}},
    {"GetReverseMode_io",
     {Calling(GetReverseMode_io).Reads(REVERSE_CTRL, 0xFFC).Returns(0),
      Calling(GetReverseMode_io).Reads(REVERSE_CTRL, 0xFFF).Returns(3)}},
    {"SetReverseDistance",
     {Calling(SetReverseDistance, 0)
          .Reads(REVERSE_CTRL, 0xFFFFFFFE)
          .Changes(REVERSE_CTRL, 0xFFFFFFFE, 0xFFFFF002),
      Calling(SetReverseDistance, 0x3FF).Reads(REVERSE_CTRL, 2).Changes(REVERSE_CTRL, 2, 0xFFE),
      Calling(SetReverseDistance, 0x400).Reads(REVERSE_CTRL, 0xFFE).Changes(REVERSE_CTRL, 0xFFE, 2),
      Calling(SetReverseDistance, kAllOnes).Reads(REVERSE_CTRL, 2).Changes(REVERSE_CTRL, 2, 0xFFE),
      Calling(SetReverseDistance, 1)
          .Reads(REVERSE_CTRL, 0)
          .Fails("SetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(SetReverseDistance, 1)
          .Reads(REVERSE_CTRL, 1)
          .Fails("SetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(SetReverseDistance, 1)
          .Reads(REVERSE_CTRL, 3)
          .Fails("SetReverseDistance ReverseMode invalid parameter!\n")}},
    {"GetReverseDistance",
     {Calling(GetReverseDistance).Reads(REVERSE_CTRL, 2).Reads(REVERSE_CTRL, 2).Returns(0),
      Calling(GetReverseDistance)
          .Reads(REVERSE_CTRL, 0xFFFFFFFE)
          .Reads(REVERSE_CTRL, 0xFFFFFFFE)
          .Returns(0x3FF),
      Calling(GetReverseDistance)
          .Reads(REVERSE_CTRL, 0xFFC)
          .FailsToGet("GetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(GetReverseDistance)
          .Reads(REVERSE_CTRL, 0xFFD)
          .FailsToGet("GetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(GetReverseDistance)
          .Reads(REVERSE_CTRL, 0xFFF)
          .FailsToGet("GetReverseDistance ReverseMode invalid parameter!\n")}},
    {"GetEncoderFreq",
     {Calling(GetEncoderFreq).Reads(ENCODER_FREQ, 0).Returns(0),
      Calling(GetEncoderFreq).Reads(ENCODER_FREQ, kAllOnes).Returns(kAllOnes)}},
    {"GetXtrigLostSta",
     {Calling(GetXtrigLostSta).Reads(XTRIG_LOST_STA, 9).Returns(9),
      Calling(GetXtrigLostSta).Reads(XTRIG_LOST_STA, kAllOnes).Returns(kAllOnes)}},
    {"TriggerLostReset",
     {Calling(TriggerLostReset)
          .Reads(LASER_CTRL, 2)
          .Writes(LASER_CTRL, 3)
          .Sleeps(1)
          .Writes(LASER_CTRL, 2),
      Calling(TriggerLostReset)
          .Reads(LASER_CTRL, kAllOnes)
          .Writes(LASER_CTRL, kAllOnes)
          .Sleeps(1)
          .Writes(LASER_CTRL, 0xFFFFFFFE),
      Calling(TriggerLostReset).Sleeps(1).LosesAll()}},
    {"SetExternSignalFilter",
     {Calling(SetExternSignalFilter, 0).Writes(EXTIN_WIDTH, 0),
      Calling(SetExternSignalFilter, 10).Writes(EXTIN_WIDTH, 500),
      Calling(SetExternSignalFilter, 85899345).Writes(EXTIN_WIDTH, 0xFFFFFFD2),
      Calling(SetExternSignalFilter, kAllOnes).Writes(EXTIN_WIDTH, 0xFFFFFFCE),
      Calling(SetExternSignalFilter, 10).LosesAll()}},
    {"SetLasTriPolarity",
     {Calling(SetLasTriPolarity, 0).Changes(POLARITY, kAllOnes, 0xFFFFFFFB),
      Calling(SetLasTriPolarity, 1).Changes(POLARITY, 0, 4),
      Calling(SetLasTriPolarity, 2).Changes(POLARITY, 0x3F, 0x3B),
      Calling(SetLasTriPolarity, kAllOnes).Changes(POLARITY, 0, 4),
      Calling(SetLasTriPolarity, 1).LosesAll()}},
    {"SetExtTriggerState",
     {Calling(SetExtTriggerState, 2).Fails(), Calling(SetExtTriggerState, kAllOnes).Fails()}},
    {"SetGlobalControl",
     {Calling(SetGlobalControl, 2).Changes(TRIGGER_CTRL, 0xFFFFFFF3, 0xFFFFFFB3),
      Calling(SetGlobalControl, 0xFFFFFFFE).Changes(TRIGGER_CTRL, 0x03, 0x03)}},
    {"GetGlobalControl",
     {Calling(GetGlobalControl).Reads(TRIGGER_CTRL, 0xFFFFFFBF).Returns(0),
      Calling(GetGlobalControl).Reads(TRIGGER_CTRL, 0x40).Returns(1)}},
    // Nothing above bit 4 survives either of the two.
    {"SetMasterState",
     {Calling(SetMasterState, 0).Changes(MASTER_CTRL, kAllOnes, 0x0F),
      Calling(SetMasterState, 1).Changes(MASTER_CTRL, 0xFFFFFFEA, 0x1A),
      Calling(SetMasterState, 2).Changes(MASTER_CTRL, 0x1F, 0x0F),
      Calling(SetMasterState, kAllOnes).Changes(MASTER_CTRL, 0, 0x10),
      Calling(SetMasterState, 1).LosesAll()}},
    {"GetMasterState",
     {Calling(GetMasterState).Reads(MASTER_CTRL, 0xFFFFFFEF).Returns(0),
      Calling(GetMasterState).Reads(MASTER_CTRL, 0x10).Returns(1)}},
    {"SetMasterConctrolID",
     {Calling(SetMasterConctrolID, 0).Changes(MASTER_CTRL, kAllOnes, 0x10),
      Calling(SetMasterConctrolID, 0xF).Changes(MASTER_CTRL, 0, 0x0F),
      Calling(SetMasterConctrolID, 0x10).Changes(MASTER_CTRL, 0x0F, 0),
      Calling(SetMasterConctrolID, kAllOnes).Changes(MASTER_CTRL, 0xF0, 0x1F),
      Calling(SetMasterConctrolID, 1).LosesAll()}},
    {"GetMasterConctrolID",
     {Calling(GetMasterConctrolID).Reads(MASTER_CTRL, 0x10).Returns(0),
      Calling(GetMasterConctrolID).Reads(MASTER_CTRL, kAllOnes).Returns(0xF)}},
};

}  // namespace tessaline_test
