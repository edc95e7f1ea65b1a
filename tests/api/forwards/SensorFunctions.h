#pragma once

// Exposure, laser mode, and values that the library knows without reading the FPGA.

#include "support/Calling.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

inline const std::vector<CalledFunction> kSensorFunctions{
    {"SetExposureNum",
     {Calling(SetExposureNum, 1).Changes(kReg.EXPOSURE_NUM, kAllOnes, 0xFFFFFFF9),
      Calling(SetExposureNum, 5).Changes(kReg.EXPOSURE_NUM, 0xBB82, 0xBB85),
      Calling(SetExposureNum, 0).Fails(), Calling(SetExposureNum, 6).Fails(),
      Calling(SetExposureNum, kAllOnes).Fails(),
      Calling(SetExposureNum, 1).Reads(kReg.EXPOSURE_NUM, 1).LosesAccess(1).Fails()}},
    {"GetExposureNum",
     {Calling(GetExposureNum).Reads(kReg.EXPOSURE_NUM, 0xFFFFFFF8).Returns(0),
      Calling(GetExposureNum).Reads(kReg.EXPOSURE_NUM, kAllOnes).Returns(7)}},
    // Whole lines of 3.205387 microseconds, rounded up.
    {"SetExposureTime",
     {Calling(SetExposureTime, 1, 0).Writes(kReg.EXP_TIME_1, 0),
      Calling(SetExposureTime, 1, 3).Writes(kReg.EXP_TIME_1, 1),
      Calling(SetExposureTime, 2, 4).Writes(kReg.EXP_TIME_2, 2),
      Calling(SetExposureTime, 3, 1000).Writes(kReg.EXP_TIME_3, 312),
      Calling(SetExposureTime, 4, 1000).Writes(kReg.EXP_TIME_4, 312),
      Calling(SetExposureTime, 5, 1000).Writes(kReg.EXP_TIME_5, 312),
      Calling(SetExposureTime, 0, 1000).Fails(), Calling(SetExposureTime, 6, 1000).Fails(),
      Calling(SetExposureTime, 1, 1000).LosesAll()}},
    // Clears everything above bit 1.
    {"SetLaserMode",
     {Calling(SetLaserMode, 0).Changes(kReg.LASER_CTRL, kAllOnes, 1),
      Calling(SetLaserMode, 1).Changes(kReg.LASER_CTRL, kAllOnes, 3),
      Calling(SetLaserMode, 2).Changes(kReg.LASER_CTRL, 2, 0),
      Calling(SetLaserMode, kAllOnes).Changes(kReg.LASER_CTRL, 0, 2),
      Calling(SetLaserMode, 1).LosesAll()}},
    // For sensors that this board does not have.
    {"SetSensingMode", {Calling(SetSensingMode, 1)}},
    {"SetHDRParam", {Calling(SetHDRParam, 1, 2)}},
    {"SetHDRParam24", {Calling(SetHDRParam24, 0.5, 0.25, 0.125)}},
    {"SetFpgaContinuous", {Calling(SetFpgaContinuous, 1)}},
    {"GetDriveMode", {Calling(GetDriveMode).Returns(0)}},
    {"GetImageWidth", {Calling(GetImageWidth).Returns(1456)}},
    {"GetImageHeight", {Calling(GetImageHeight).Returns(1088)}},
    {"GetCmosMaxDrive", {Calling(GetCmosMaxDrive).Returns(1456u << 16 | 1088)}},
    {"TransferMaxFrameValue", {Calling(TransferMaxFrameValue).Returns(0x00EE2A11)}},
    {"GetDigitalPOTResolution", {Calling(GetDigitalPOTResolution).Returns(1024)}},
    {"Temp18b20Read", {Calling(Temp18b20Read).Returns(0)}},
    {"QV4l2Buf", {Calling(QV4l2Buf, 18).Fails(), Calling(QV4l2Buf, kAllOnes).Fails()}},
};

}  // namespace tessaline_test
