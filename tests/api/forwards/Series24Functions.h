#pragma once

// Functions that only a board of series 24 has, or that differ from those of the first series.

#include "support/Calling.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

inline const std::vector<CalledFunction> kSeries24Functions{
    // The FPGA compares with half the number, rounded down.
    {"SetRisThresholdValue",
     {Calling(SetRisThresholdValue, 0).Writes(kReg.RIS_THRESHOLD, 0),
      Calling(SetRisThresholdValue, 1).Writes(kReg.RIS_THRESHOLD, 0),
      Calling(SetRisThresholdValue, 101).Writes(kReg.RIS_THRESHOLD, 50),
      Calling(SetRisThresholdValue, 511).Writes(kReg.RIS_THRESHOLD, 255),
      Calling(SetRisThresholdValue, 512).Writes(kReg.RIS_THRESHOLD, 255),
      Calling(SetRisThresholdValue, kAllOnes).Writes(kReg.RIS_THRESHOLD, 255)}},
    // Segments of the exposure of 100 microseconds (5000 ticks) that is set first. The third number
    // is not used; the third segment is the rest, and wraps around.
    {"SetHDRParam24",
     {Calling(SetExposureTime, 1, 100).Writes(kReg.EXP_TIME_1, 89),
      Calling(SetHDRParam24, 0.5, 0.25, 9.0)
          .Changes(kReg.HDR_CTRL, 1, 2500 << 1 | 1)
          .Writes(kReg.HDR_SEG2, 1250)
          .Writes(kReg.HDR_SEG3, 1250)
          .Writes(kReg.HDR_GAP, 50)
          .Writes(kReg.HDR_TOTAL, 4900),
      Calling(SetHDRParam24, 0.0, 0.0, 0.0)
          .Changes(kReg.HDR_CTRL, 0xFFFFFFFE, 0)
          .Writes(kReg.HDR_SEG2, 0)
          .Writes(kReg.HDR_SEG3, 5000)
          .Writes(kReg.HDR_GAP, 50)
          .Writes(kReg.HDR_TOTAL, 4900),
      Calling(SetHDRParam24, 1.0, 1.0, 1.0)
          .Changes(kReg.HDR_CTRL, 0, 5000 << 1)
          .Writes(kReg.HDR_SEG2, 5000)
          .Writes(kReg.HDR_SEG3, 0xFFFFEC78)
          .Writes(kReg.HDR_GAP, 50)
          .Writes(kReg.HDR_TOTAL, 4900)}},
    {"SetFpgaContinuous",
     {Calling(SetFpgaContinuous, 0).Writes(kReg.FPGA_CONTINUOUS, 0),
      Calling(SetFpgaContinuous, 1).Writes(kReg.FPGA_CONTINUOUS, 1),
      Calling(SetFpgaContinuous, kAllOnes).Writes(kReg.FPGA_CONTINUOUS, kAllOnes)}},
    // For a sensor that this board does not have.
    {"SetHDRParam", {Calling(SetHDRParam, 1, 2)}},
};

}  // namespace tessaline_test
