#pragma once

// Trigger, encoder, synchronisation.

#include "support/Calling.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

inline const std::vector<CalledFunction> kTriggerFunctions{
    {"SetTriMode",
     {Calling(SetTriMode, 0).Changes(kReg.TRIGGER_CTRL, 0xFFFFFFB7, 0xFFFFFFB4),
      Calling(SetTriMode, 3).Changes(kReg.TRIGGER_CTRL, 0x34, 0x37),
      Calling(SetTriMode, 4).Changes(kReg.TRIGGER_CTRL, 0x37, 0x34),
      Calling(SetTriMode, kAllOnes).Changes(kReg.TRIGGER_CTRL, 0x34, 0x37),
      Calling(SetTriMode, 1).LosesAll()}},
    {"TricontrolSWTrigger",
     {Calling(TricontrolSWTrigger)
          .Reads(kReg.TRIGGER_CTRL, 0xFFFFFFB3)
          .Writes(kReg.TRIGGER_CTRL, 0xFFFFFFBB)
          .Sleeps(1)
          .Writes(kReg.TRIGGER_CTRL, 0xFFFFFFB3),
      Calling(TricontrolSWTrigger)
          .Reads(kReg.TRIGGER_CTRL, 0x3B)
          .Writes(kReg.TRIGGER_CTRL, 0x3B)
          .Sleeps(1)
          .Writes(kReg.TRIGGER_CTRL, 0x33),
      Calling(TricontrolSWTrigger).Sleeps(1).LosesAll()}},
    // Microseconds, at least 2; in mode 1 pulses. 32 bits of ticks hold at most 85899345
    // microseconds.
    {"SetTriSpacing",
     {Calling(SetTriSpacing, 0).Reads(kReg.TRIGGER_CTRL, 0).Writes(kReg.TRI_SPACING, 100),
      Calling(SetTriSpacing, 1).Reads(kReg.TRIGGER_CTRL, 2).Writes(kReg.TRI_SPACING, 100),
      Calling(SetTriSpacing, 2).Reads(kReg.TRIGGER_CTRL, 3).Writes(kReg.TRI_SPACING, 100),
      Calling(SetTriSpacing, 3).Reads(kReg.TRIGGER_CTRL, 0x34).Writes(kReg.TRI_SPACING, 150),
      Calling(SetTriSpacing, 1000).Reads(kReg.TRIGGER_CTRL, 0).Writes(kReg.TRI_SPACING, 50000),
      Calling(SetTriSpacing, 85899345)
          .Reads(kReg.TRIGGER_CTRL, 0)
          .Writes(kReg.TRI_SPACING, 0xFFFFFFD2),
      Calling(SetTriSpacing, 85899346).Reads(kReg.TRIGGER_CTRL, 0).Writes(kReg.TRI_SPACING, 4),
      Calling(SetTriSpacing, 0).Reads(kReg.TRIGGER_CTRL, 1).Writes(kReg.TRI_SPACING, 0),
      Calling(SetTriSpacing, 1).Reads(kReg.TRIGGER_CTRL, 0x35).Writes(kReg.TRI_SPACING, 1),
      Calling(SetTriSpacing, kAllOnes)
          .Reads(kReg.TRIGGER_CTRL, 1)
          .Writes(kReg.TRI_SPACING, kAllOnes),
      Calling(SetTriSpacing, 1).LosesAll()}},
    {"GetTriSpacing",
     {Calling(GetTriSpacing).Reads(kReg.TRI_SPACING, 0).Returns(0),
      Calling(GetTriSpacing).Reads(kReg.TRI_SPACING, 50001).Returns(50001),
      Calling(GetTriSpacing).Reads(kReg.TRI_SPACING, kAllOnes).Returns(kAllOnes)}},
    {"SetDoorControlEn",
     {Calling(SetDoorControlEn, 0)
          .Reads(kReg.TRIGGER_CTRL, 0xFFFFFFB5)
          .Changes(kReg.TRIGGER_CTRL, 0xFFFFFFB5, 0xFFFFFFB1),
      Calling(SetDoorControlEn, 1).Reads(kReg.TRIGGER_CTRL, 0).Changes(kReg.TRIGGER_CTRL, 0, 4),
      Calling(SetDoorControlEn, 2).Reads(kReg.TRIGGER_CTRL, 5).Changes(kReg.TRIGGER_CTRL, 5, 1),
      Calling(SetDoorControlEn, kAllOnes)
          .Reads(kReg.TRIGGER_CTRL, 1)
          .Changes(kReg.TRIGGER_CTRL, 1, 5),
      Calling(SetDoorControlEn, 1)
          .Reads(kReg.TRIGGER_CTRL, 2)
          .Fails("SetDoorControlEn TriMode invalid parameter!\n"),
      Calling(SetDoorControlEn, 0)
          .Reads(kReg.TRIGGER_CTRL, 3)
          .Fails("SetDoorControlEn TriMode invalid parameter!\n"),
      Calling(SetDoorControlEn, 1)
          .Reads(kReg.TRIGGER_CTRL, 0)
          .Reads(kReg.TRIGGER_CTRL, 0)
          .LosesAccess(2)}},
    {"GetDoorControlEn",
     {Calling(GetDoorControlEn).Reads(kReg.TRIGGER_CTRL, 5).Reads(kReg.TRIGGER_CTRL, 5).Returns(1),
      Calling(GetDoorControlEn)
          .Reads(kReg.TRIGGER_CTRL, 0x70)
          .Reads(kReg.TRIGGER_CTRL, 0x70)
          .Returns(0),
      Calling(GetDoorControlEn)
          .Reads(kReg.TRIGGER_CTRL, 6)
          .FailsToGet("GetDoorControlEn TriMode invalid parameter!\n"),
      Calling(GetDoorControlEn)
          .Reads(kReg.TRIGGER_CTRL, 3)
          .FailsToGet("GetDoorControlEn TriMode invalid parameter!\n")}},
    {"SetTriDelayStandard",
     {Calling(SetTriDelayStandard, 0).Changes(kReg.TRIGGER_CTRL, 0xFFFFFFB7, 0xFFFFFF97),
      Calling(SetTriDelayStandard, 1).Changes(kReg.TRIGGER_CTRL, 0x17, 0x37),
      Calling(SetTriDelayStandard, 2).Changes(kReg.TRIGGER_CTRL, 0x37, 0x17),
      Calling(SetTriDelayStandard, kAllOnes).Changes(kReg.TRIGGER_CTRL, 0, 0x20),
      Calling(SetTriDelayStandard, 1).LosesAll()}},
    {"GetTriDelayStandard",
     {Calling(GetTriDelayStandard).Reads(kReg.TRIGGER_CTRL, 0x20).Returns(1),
      Calling(GetTriDelayStandard).Reads(kReg.TRIGGER_CTRL, 0xFFFFFFDF).Returns(0)}},
    {"SetDelayEn",
     {Calling(SetDelayEn, 0).Changes(kReg.TRIGGER_CTRL, 0xFFFFFFB7, 0xFFFFFFA7),
      Calling(SetDelayEn, 1).Changes(kReg.TRIGGER_CTRL, 0x27, 0x37),
      Calling(SetDelayEn, 2).Changes(kReg.TRIGGER_CTRL, 0x37, 0x27),
      Calling(SetDelayEn, kAllOnes).Changes(kReg.TRIGGER_CTRL, 0, 0x10),
      Calling(SetDelayEn, 1).LosesAll()}},
    {"SetTriDelay",
     {Calling(SetTriDelay, 0).Reads(kReg.TRIGGER_CTRL, 0).Writes(kReg.TRI_DELAY, 0),
      Calling(SetTriDelay, 7).Reads(kReg.TRIGGER_CTRL, 0x13).Writes(kReg.TRI_DELAY, 350),
      Calling(SetTriDelay, 85899345).Reads(kReg.TRIGGER_CTRL, 0).Writes(kReg.TRI_DELAY, 0xFFFFFFD2),
      Calling(SetTriDelay, 85899346).Reads(kReg.TRIGGER_CTRL, 0).Writes(kReg.TRI_DELAY, 4),
      Calling(SetTriDelay, 7).Reads(kReg.TRIGGER_CTRL, 0x20).Writes(kReg.TRI_DELAY, 7),
      Calling(SetTriDelay, kAllOnes)
          .Reads(kReg.TRIGGER_CTRL, 0x20)
          .Writes(kReg.TRI_DELAY, kAllOnes),
      Calling(SetTriDelay, 1).LosesAll()}},
    {"GetTriDelay",
     {Calling(GetTriDelay).Reads(kReg.TRI_DELAY, 49).Reads(kReg.TRIGGER_CTRL, 0).Returns(0),
      Calling(GetTriDelay).Reads(kReg.TRI_DELAY, 399).Reads(kReg.TRIGGER_CTRL, 0x13).Returns(7),
      Calling(GetTriDelay)
          .Reads(kReg.TRI_DELAY, kAllOnes)
          .Reads(kReg.TRIGGER_CTRL, 0)
          .Returns(85899345),
      Calling(GetTriDelay).Reads(kReg.TRI_DELAY, 399).Reads(kReg.TRIGGER_CTRL, 0x20).Returns(399)}},
    {"SetReverseMode_io",
     {Calling(SetReverseMode_io, 0).Changes(kReg.REVERSE_CTRL, kAllOnes, 0xFFFFFFFC),
      Calling(SetReverseMode_io, 3).Changes(kReg.REVERSE_CTRL, 0xFFC, 0xFFF),
      Calling(SetReverseMode_io, 4).Changes(kReg.REVERSE_CTRL, 0xFFF, 0xFFC),
      Calling(SetReverseMode_io, kAllOnes).Changes(kReg.REVERSE_CTRL, 0, 3),
      Calling(SetReverseMode_io, 1).LosesAll()}},
    {"GetReverseMode_io",
     {Calling(GetReverseMode_io).Reads(kReg.REVERSE_CTRL, 0xFFC).Returns(0),
      Calling(GetReverseMode_io).Reads(kReg.REVERSE_CTRL, 0xFFF).Returns(3)}},
    {"SetReverseDistance",
     {Calling(SetReverseDistance, 0)
          .Reads(kReg.REVERSE_CTRL, 0xFFFFFFFE)
          .Changes(kReg.REVERSE_CTRL, 0xFFFFFFFE, 0xFFFFF002),
      Calling(SetReverseDistance, 0x3FF)
          .Reads(kReg.REVERSE_CTRL, 2)
          .Changes(kReg.REVERSE_CTRL, 2, 0xFFE),
      Calling(SetReverseDistance, 0x400)
          .Reads(kReg.REVERSE_CTRL, 0xFFE)
          .Changes(kReg.REVERSE_CTRL, 0xFFE, 2),
      Calling(SetReverseDistance, kAllOnes)
          .Reads(kReg.REVERSE_CTRL, 2)
          .Changes(kReg.REVERSE_CTRL, 2, 0xFFE),
      Calling(SetReverseDistance, 1)
          .Reads(kReg.REVERSE_CTRL, 0)
          .Fails("SetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(SetReverseDistance, 1)
          .Reads(kReg.REVERSE_CTRL, 1)
          .Fails("SetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(SetReverseDistance, 1)
          .Reads(kReg.REVERSE_CTRL, 3)
          .Fails("SetReverseDistance ReverseMode invalid parameter!\n")}},
    {"GetReverseDistance",
     {Calling(GetReverseDistance)
          .Reads(kReg.REVERSE_CTRL, 2)
          .Reads(kReg.REVERSE_CTRL, 2)
          .Returns(0),
      Calling(GetReverseDistance)
          .Reads(kReg.REVERSE_CTRL, 0xFFFFFFFE)
          .Reads(kReg.REVERSE_CTRL, 0xFFFFFFFE)
          .Returns(0x3FF),
      Calling(GetReverseDistance)
          .Reads(kReg.REVERSE_CTRL, 0xFFC)
          .FailsToGet("GetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(GetReverseDistance)
          .Reads(kReg.REVERSE_CTRL, 0xFFD)
          .FailsToGet("GetReverseDistance ReverseMode invalid parameter!\n"),
      Calling(GetReverseDistance)
          .Reads(kReg.REVERSE_CTRL, 0xFFF)
          .FailsToGet("GetReverseDistance ReverseMode invalid parameter!\n")}},
    {"GetEncoderFreq",
     {Calling(GetEncoderFreq).Reads(kReg.ENCODER_FREQ, 0).Returns(0),
      Calling(GetEncoderFreq).Reads(kReg.ENCODER_FREQ, kAllOnes).Returns(kAllOnes)}},
    {"GetXtrigLostSta",
     {Calling(GetXtrigLostSta).Reads(kReg.XTRIG_LOST_STA, 9).Returns(9),
      Calling(GetXtrigLostSta).Reads(kReg.XTRIG_LOST_STA, kAllOnes).Returns(kAllOnes)}},
    {"TriggerLostReset",
     {Calling(TriggerLostReset)
          .Reads(kReg.LASER_CTRL, 2)
          .Writes(kReg.LASER_CTRL, 3)
          .Sleeps(1)
          .Writes(kReg.LASER_CTRL, 2),
      Calling(TriggerLostReset)
          .Reads(kReg.LASER_CTRL, kAllOnes)
          .Writes(kReg.LASER_CTRL, kAllOnes)
          .Sleeps(1)
          .Writes(kReg.LASER_CTRL, 0xFFFFFFFE),
      Calling(TriggerLostReset).Sleeps(1).LosesAll()}},
    {"SetExternSignalFilter",
     {Calling(SetExternSignalFilter, 0).Writes(kReg.EXTIN_WIDTH, 0),
      Calling(SetExternSignalFilter, 10).Writes(kReg.EXTIN_WIDTH, 500),
      Calling(SetExternSignalFilter, 85899345).Writes(kReg.EXTIN_WIDTH, 0xFFFFFFD2),
      Calling(SetExternSignalFilter, kAllOnes).Writes(kReg.EXTIN_WIDTH, 0xFFFFFFCE),
      Calling(SetExternSignalFilter, 10).LosesAll()}},
    {"SetLasTriPolarity",
     {Calling(SetLasTriPolarity, 0).Changes(kReg.POLARITY, kAllOnes, 0xFFFFFFFB),
      Calling(SetLasTriPolarity, 1).Changes(kReg.POLARITY, 0, 4),
      Calling(SetLasTriPolarity, 2).Changes(kReg.POLARITY, 0x3F, 0x3B),
      Calling(SetLasTriPolarity, kAllOnes).Changes(kReg.POLARITY, 0, 4),
      Calling(SetLasTriPolarity, 1).LosesAll()}},
    {"SetExtTriggerState",
     {Calling(SetExtTriggerState, 2).Fails(), Calling(SetExtTriggerState, kAllOnes).Fails()}},
    {"SetGlobalControl",
     {Calling(SetGlobalControl, 2).Changes(kReg.TRIGGER_CTRL, 0xFFFFFFF3, 0xFFFFFFB3),
      Calling(SetGlobalControl, 0xFFFFFFFE).Changes(kReg.TRIGGER_CTRL, 0x03, 0x03)}},
    {"GetGlobalControl",
     {Calling(GetGlobalControl).Reads(kReg.TRIGGER_CTRL, 0xFFFFFFBF).Returns(0),
      Calling(GetGlobalControl).Reads(kReg.TRIGGER_CTRL, 0x40).Returns(1)}},
    // This one and SetMasterConctrolID clear everything above bit 4.
    {"SetMasterState",
     {Calling(SetMasterState, 0).Changes(kReg.MASTER_CTRL, kAllOnes, 0x0F),
      Calling(SetMasterState, 1).Changes(kReg.MASTER_CTRL, 0xFFFFFFEA, 0x1A),
      Calling(SetMasterState, 2).Changes(kReg.MASTER_CTRL, 0x1F, 0x0F),
      Calling(SetMasterState, kAllOnes).Changes(kReg.MASTER_CTRL, 0, 0x10),
      Calling(SetMasterState, 1).LosesAll()}},
    {"GetMasterState",
     {Calling(GetMasterState).Reads(kReg.MASTER_CTRL, 0xFFFFFFEF).Returns(0),
      Calling(GetMasterState).Reads(kReg.MASTER_CTRL, 0x10).Returns(1)}},
    {"SetMasterConctrolID",
     {Calling(SetMasterConctrolID, 0).Changes(kReg.MASTER_CTRL, kAllOnes, 0x10),
      Calling(SetMasterConctrolID, 0xF).Changes(kReg.MASTER_CTRL, 0, 0x0F),
      Calling(SetMasterConctrolID, 0x10).Changes(kReg.MASTER_CTRL, 0x0F, 0),
      Calling(SetMasterConctrolID, kAllOnes).Changes(kReg.MASTER_CTRL, 0xF0, 0x1F),
      Calling(SetMasterConctrolID, 1).LosesAll()}},
    {"GetMasterConctrolID",
     {Calling(GetMasterConctrolID).Reads(kReg.MASTER_CTRL, 0x10).Returns(0),
      Calling(GetMasterConctrolID).Reads(kReg.MASTER_CTRL, kAllOnes).Returns(0xF)}},
};

}  // namespace tessaline_test
