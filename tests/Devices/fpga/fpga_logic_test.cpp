// The parts of FpgaLogic that no exported function reaches: the methods that only start-up, the
// series and the notifiers call, and special cases of others. All other methods are tested in
// api/forwards/, where applications call them.
#include <map>

#include "Devices/fpga/FpgaLogic25.h"
#include "Devices/fpga/FpgaLogicFixture.h"
#include "support/LoggedLines.h"

namespace tessaline_test {
namespace {

using namespace VeltranoSDK;
using namespace VeltranoSDK::fpga;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// This test comes first and has no fixture, because nothing may have selected a series in this
// process.
TEST(FpgaLogicWithoutASeries, ReachesNoRegister) {
  ASSERT_EQ(SeriesLogicFactory::GetSeriesLogicInstance(), nullptr);
  const LoggedErrors errors;
  FpgaLogic logic;
  EXPECT_EQ(logic.GetTriSpacing(), kAllOnes);
  EXPECT_FALSE(logic.SetExposureNum(1));
  EXPECT_THAT(
      errors.lines(),
      ElementsAre("Neighbours.cpp: FpgaLogic: no product is selected, call GetLibVersion first"));
}

// --- Trigger and outputs ---------------------------------------------------------------------

const std::vector<CalledFunction> kTriggerMethods{
    {"GetTriMode",
     {Asking(&FpgaLogic::GetTriMode).Reads(kReg.TRIGGER_CTRL, kAllOnes).Returns(3),
      Asking(&FpgaLogic::GetTriMode).Reads(kReg.TRIGGER_CTRL, 0xFFFFFFFC).Returns(0)}},
    {"GetDelayEn",
     {Asking(&FpgaLogic::GetDelayEn).Reads(kReg.TRIGGER_CTRL, kAllOnes).Returns(1),
      Asking(&FpgaLogic::GetDelayEn).Reads(kReg.TRIGGER_CTRL, 0xFFFFFFEF).Returns(0)}},
    // The device first leaves master mode.
    {"IntSignalOper",
     {Asking(&FpgaLogic::IntSignalOper).Writes(kReg.MASTER_CTRL, 0).Writes(kReg.TRIGGER_CTRL, 0)}},
    {"GetXtrigStart",
     {Asking(&FpgaLogic::GetXtrigStart)
          .Reads(kReg.XTRIG_START_L, 0x89ABCDEF)
          .Reads(kReg.XTRIG_START_H, 0x01234567)
          .Returns(0x0123456789ABCDEF)}},
    {"GetExternalTriggerLevel",
     {Asking(&FpgaLogic::GetExternalTriggerLevel)
          .Reads(kReg.EXT_TRIGGER_LEVEL, kAllOnes)
          .Returns(1),
      Asking(&FpgaLogic::GetExternalTriggerLevel).Reads(kReg.EXT_TRIGGER_LEVEL, ~1u).Returns(0)}},
    // The upper half of the word is lost, and the value is not masked to its bit.
    {"ExternalTriggerIrqCtrl",
     {Asking(&FpgaLogic::ExternalTriggerIrqCtrl, kOff).Changes(kReg.IRQ_CTRL, kAllOnes, 0xFFFB),
      Asking(&FpgaLogic::ExternalTriggerIrqCtrl, 3).Changes(kReg.IRQ_CTRL, 0, 0xC)}},
    {"DaIrqCtrl",
     {Asking(&FpgaLogic::DaIrqCtrl, kOff).Changes(kReg.IRQ_CTRL, kAllOnes, 0xFFFE),
      Asking(&FpgaLogic::DaIrqCtrl, kOn).Changes(kReg.IRQ_CTRL, 0xFFFF0006, 7),
      Asking(&FpgaLogic::DaIrqCtrl, 6).Changes(kReg.IRQ_CTRL, 0, 6)}},
    {"GetExtinWidth",
     {Asking(&FpgaLogic::GetExtinWidth).Reads(kReg.EXTIN_WIDTH, 500).Returns(500)}},
    {"GetDigitalOutputEnState",
     {Asking(&FpgaLogic::GetDigitalOutputEnState, 0).Reads(kReg.DO1_CTRL, 0x08000000).Returns(1),
      Asking(&FpgaLogic::GetDigitalOutputEnState, 1).Reads(kReg.DO2_CTRL, 0xF7FFFFFF).Returns(0),
      Asking(&FpgaLogic::GetDigitalOutputEnState, 2)
          .FailsToGet("GetDigitalOutputEnState channel error!\n")}},
    {"GetExtTriDelayStandard",
     {Asking(&FpgaLogic::GetExtTriDelayStandard, 0).Reads(kReg.DO1_CTRL, 0x10000000).Returns(1),
      Asking(&FpgaLogic::GetExtTriDelayStandard, 1).Reads(kReg.DO2_CTRL, 0xEFFFFFFF).Returns(0),
      Asking(&FpgaLogic::GetExtTriDelayStandard, kDaOutput).Reads(kReg.IRQ_CTRL, 0x2).Returns(1),
      Asking(&FpgaLogic::GetExtTriDelayStandard, kDaOutput).Reads(kReg.IRQ_CTRL, ~2u).Returns(0),
      Asking(&FpgaLogic::GetExtTriDelayStandard, 3)
          .FailsToGet("GetExtTriDelayStandard channel error!\n")}},
    {"GetDAOutputDelay",
     {Asking(&FpgaLogic::GetDAOutputDelay)
          .Reads(kReg.DA_OUTPUT_DELAY, 399)
          .Reads(kReg.IRQ_CTRL, 0)
          .Returns(7),
      Asking(&FpgaLogic::GetDAOutputDelay)
          .Reads(kReg.DA_OUTPUT_DELAY, 399)
          .Reads(kReg.IRQ_CTRL, 2)
          .Returns(399)}},
    {"GetOutLostSta",
     {Asking(&FpgaLogic::GetOutLostSta, 0).Reads(kReg.DO1_LOST_STA, 11).Returns(11),
      Asking(&FpgaLogic::GetOutLostSta, 1).Reads(kReg.DO2_LOST_STA, 22).Returns(22),
      Asking(&FpgaLogic::GetOutLostSta, 2).Prints("GetOutLostSta invalid parameter!\n")}},
    {"GetCommVerifyErrorSta",
     {Asking(&FpgaLogic::GetCommVerifyErrorSta).Reads(kReg.COMM_VERIFY_ERROR_STA, 7).Returns(7)}},
    {"SetCamTriPolarity",
     {Asking(&FpgaLogic::SetCamTriPolarity, 3).Changes(kReg.POLARITY, 0, 0x1),
      Asking(&FpgaLogic::SetCamTriPolarity, 0).Changes(kReg.POLARITY, kAllOnes, 0xFFFFFFFE)}},
    {"SetCamResPolarity",
     {Asking(&FpgaLogic::SetCamResPolarity, 3).Changes(kReg.POLARITY, 0, 0x2),
      Asking(&FpgaLogic::SetCamResPolarity, 0).Changes(kReg.POLARITY, kAllOnes, 0xFFFFFFFD)}},
    // The write is made, but the result is a failure.
    {"SetExtTriPolarity",
     {Asking(&FpgaLogic::SetExtTriPolarity, 3).Changes(kReg.POLARITY, 0, 0x8).Fails(),
      Asking(&FpgaLogic::SetExtTriPolarity, 0)
          .Changes(kReg.POLARITY, kAllOnes, 0xFFFFFFF7)
          .Fails()}},
    {"GetPolarity",
     {Asking(&FpgaLogic::GetPolarity).Reads(kReg.POLARITY, 0xFFFFFFEA).Returns(0x2A)}},
};

// --- Sensor, laser, exposure -----------------------------------------------------------------

const std::vector<CalledFunction> kSensorMethods{
    // The value that it reads is not used, and the argument is not masked.
    {"SetCmosSensorWorkMode",
     {Asking(&FpgaLogic::SetCmosSensorWorkMode, 1).Changes(kReg.CMOS_WORK_MODE, 0xFF, 3),
      Asking(&FpgaLogic::SetCmosSensorWorkMode, 0).Changes(kReg.CMOS_WORK_MODE, 0, 2),
      Asking(&FpgaLogic::SetCmosSensorWorkMode, ~2u).Changes(kReg.CMOS_WORK_MODE, 0, kAllOnes)}},
    {"SetCmosTimingControl",
     {Asking(&FpgaLogic::SetCmosTimingControl, kOn, kOff).Writes(kReg.CMOS_TIMING_CTRL, 1),
      Asking(&FpgaLogic::SetCmosTimingControl, kOff, kOn).Writes(kReg.CMOS_TIMING_CTRL, 4),
      Asking(&FpgaLogic::SetCmosTimingControl, 2, 3).Writes(kReg.CMOS_TIMING_CTRL, 0xE)}},
    {"SetTRow",
     {Asking(&FpgaLogic::SetTRow, 217).Changes(kReg.SENSOR_TIMING, kAllOnes, 217 << 5 | 0x1F),
      Asking(&FpgaLogic::SetTRow, kAllOnes).Changes(kReg.SENSOR_TIMING, 0, 0xFFFFFFE0)}},
    // Bits that do not fit overflow into the row time.
    {"SetTGes",
     {Asking(&FpgaLogic::SetTGes, 16).Changes(kReg.SENSOR_TIMING, kAllOnes, 0xFFFFFFF0),
      Asking(&FpgaLogic::SetTGes, 0x21).Changes(kReg.SENSOR_TIMING, 0, 0x21)}},
    {"CameraReset",
     {Asking(&FpgaLogic::CameraReset)
          .Reads(kReg.CMOS_WORK_MODE, 6)
          .Writes(kReg.CMOS_WORK_MODE, 7)
          .Sleeps(50000)
          .Writes(kReg.CMOS_WORK_MODE, 6)
          .Sleeps(50000)
          .Writes(kReg.CMOS_WORK_MODE, 7)
          .Sleeps(50000),
      AskingWith(kGMAX2509, &FpgaLogic::CameraReset)
          .Reads(kReg.CMOS_WORK_MODE, kAllOnes)
          .Writes(kReg.CMOS_WORK_MODE, kAllOnes)
          .Sleeps(50000)
          .Writes(kReg.CMOS_WORK_MODE, 0xFFFFFFFE)
          .Sleeps(50000)
          .Writes(kReg.CMOS_WORK_MODE, kAllOnes)
          .Sleeps(50000),
      AskingWith(kE2vFlash4k, &FpgaLogic::CameraReset)
          .Sleeps(5000000)
          .Reads(kReg.CMOS_WORK_MODE, 3)
          .Writes(kReg.CMOS_WORK_MODE, 3)
          .Sleeps(50000)
          .Writes(kReg.CMOS_WORK_MODE, 2)
          .Sleeps(50000)
          .Writes(kReg.CMOS_WORK_MODE, 3)
          .Sleeps(50000),
      AskingWith(kGSPRINT6502BSI, &FpgaLogic::CameraReset)
          .Reads(kReg.CMOS_WORK_MODE, 2)
          .Writes(kReg.CMOS_WORK_MODE, 3)
          .Sleeps(50000)}},
    {"GetLaserMode",
     {Asking(&FpgaLogic::GetLaserMode).Reads(kReg.LASER_CTRL, 2).Returns(1),
      Asking(&FpgaLogic::GetLaserMode).Reads(kReg.LASER_CTRL, 0xFFFFFFFD).Returns(0)}},
    {"SetLaserOffsetTime",
     {Asking(&FpgaLogic::SetLaserOffsetTime, 9).Writes(kReg.LASER_OFFSET_TIME, 450)}},
    {"GetFPGASeries",
     {Asking(&FpgaLogic::GetFPGASeries).Reads(kReg.FPGA_VERSION, 0x12345678).Returns(0x1234)}},
    {"GetFPGAVersion",
     {Asking(&FpgaLogic::GetFPGAVersion).Reads(kReg.FPGA_VERSION, 0x12345678).Returns(0x5678)}},
    // The division is in single precision. 16777217 has no exact float, so it counts as 16777216. A
    // sensor without a unit gives the ends of the range.
    {"SetExpTime",
     {Asking(&FpgaLogic::SetExpTime, kExposure5, 101, 10.0f).Writes(kReg.EXP_TIME_5, 11),
      Asking(&FpgaLogic::SetExpTime, kExposure2, 16777217, 1.0f).Writes(kReg.EXP_TIME_2, 16777216),
      Asking(&FpgaLogic::SetExpTime, kExposure3, 1, 0.0f).Writes(kReg.EXP_TIME_3, kAllOnes),
      Asking(&FpgaLogic::SetExpTime, kExposure4, 1, -1.0f).Writes(kReg.EXP_TIME_4, 0)}},
    // Returns the last time set for an existing slot.
    {"GetExpTime",
     {Asking(&FpgaLogic::GetExpTime, kExposure3).Returns(0),
      Asking(&FpgaLogic::SetExpTime, kExposure3, 100, 10.0f).Writes(kReg.EXP_TIME_3, 10),
      Asking(&FpgaLogic::SetExpTime, kExposure3, 230, 10.0f).Writes(kReg.EXP_TIME_3, 23),
      Asking(&FpgaLogic::GetExpTime, kExposure3).Returns(230),
      Asking(&FpgaLogic::SetExpTime, 5, 100, 10.0f).Fails(),
      Asking(&FpgaLogic::GetExpTime, 5).Returns(0)}},
    // The write is made, but the result is a failure.
    {"SetExpDelay",
     {Asking(&FpgaLogic::SetExpDelay)
          .Writes(kReg.EXP_DELAY, SensorWithoutBus::kCameraDelay)
          .Fails()}},
    {"GetExpDelay",
     {Asking(&FpgaLogic::GetExpDelay).Reads(kReg.EXP_DELAY, kAllOnes).Returns(0xFFF),
      Asking(&FpgaLogic::GetExpDelay).Reads(kReg.EXP_DELAY, 0xFFFFF000).Returns(0)}},
    {"SetExposureNumDelta",
     {Asking(&FpgaLogic::SetExposureNumDelta, 6000).Changes(kReg.EXPOSURE_NUM, 0xFFFFFFFB, 0xBB83),
      Asking(&FpgaLogic::SetExposureNumDelta, kAllOnes).Changes(kReg.EXPOSURE_NUM, 1, 0xFFFFFFF9),
      Asking(&FpgaLogic::SetExposureNumDelta, 2)
          .Reads(kReg.EXPOSURE_NUM, 1)
          .LosesAccess(1)
          .Fails()}},
    // For laser lines the delta is 1 again.
    {"SetExpNum",
     {Asking(&FpgaLogic::SetExpNum, 1).Changes(kReg.EXPOSURE_NUM, kAllOnes, 0xFFFFFFF9),
      Asking(&FpgaLogic::SetExpNum, 5).Changes(kReg.EXPOSURE_NUM, 0, 5),
      Asking(&FpgaLogic::SetExpNum, 0).Fails(), Asking(&FpgaLogic::SetExpNum, 6).Fails(),
      Asking(&FpgaLogic::SetCollectMode, kCollectLaserLine)
          .Writes(StreamSwitchPort(Block::kImage2, 0), 0)
          .Writes(StreamSwitchPort(Block::kImage2, 1), kStreamSwitchPortOff)
          .Writes(kReg.COLLECT_MODE, 0)
          .Writes(StreamSwitchPort(Block::kImage4, 0), 0)
          .Changes(kReg.EXPOSURE_NUM, 5, 0xD)
          .Writes(StreamSwitchControl(Block::kImage2), 2)
          .Writes(StreamSwitchControl(Block::kImage4), 2)
          .Sleeps(1000),
      Asking(&FpgaLogic::SetExpNum, 3).Changes(kReg.EXPOSURE_NUM, 0xBB81, 0xB)}},
    {"SetHDREnable",
     {Asking(&FpgaLogic::SetHDREnable, 3).Changes(kReg.HDR_CTRL, 0x1388, 0x1389),
      Asking(&FpgaLogic::SetHDREnable, 0).Changes(kReg.HDR_CTRL, kAllOnes, 0xFFFFFFFE),
      Asking(&FpgaLogic::SetHDREnable, 1)
          .Reads(kReg.HDR_CTRL, 0)
          .LosesAccess(1)
          .Returns(kAllOnes)}},
    {"GetHDREnable",
     {Asking(&FpgaLogic::GetHDREnable).Reads(kReg.HDR_CTRL, 1).Returns(1),
      Asking(&FpgaLogic::GetHDREnable).Reads(kReg.HDR_CTRL, 0xFFFFFFFE).Returns(0)}},
    // The result is that of the last write. The segments are computed in double precision, in this
    // order, and truncated: 16777217 has no exact float, 16777217 x 0.3 x 50 ends in .99999997, and
    // 10 x 0.83 x 50 is just below 415.
    {"SetHDRParam",
     {Asking(&FpgaLogic::SetHDRParam, 0.5, 0.25, 0)
          .Changes(kReg.HDR_CTRL, 0, 0)
          .Writes(kReg.HDR_SEG2, 0)
          .Writes(kReg.HDR_SEG3, 0)
          .Writes(kReg.HDR_GAP, 50)
          .LosesAccess(5)
          .Returns(kAllOnes),
      Asking(&FpgaLogic::SetExpTime, kExposure1, 1, 1.0f).Writes(kReg.EXP_TIME_1, 1),
      Asking(&FpgaLogic::SetHDRParam, 0.999, 0.019, 0)
          .Changes(kReg.HDR_CTRL, 0, 49u << 1)
          .Writes(kReg.HDR_SEG2, 0)
          .Writes(kReg.HDR_SEG3, 1)
          .Writes(kReg.HDR_GAP, 50)
          .Writes(kReg.HDR_TOTAL, 0xFFFFFFCE),
      Asking(&FpgaLogic::SetExpTime, kExposure1, 16777217, 1.0f).Writes(kReg.EXP_TIME_1, 16777216),
      Asking(&FpgaLogic::SetHDRParam, 1.0, 0.3, 0)
          .Changes(kReg.HDR_CTRL, 0, 838860850u << 1)
          .Writes(kReg.HDR_SEG2, 251658254)
          .Writes(kReg.HDR_SEG3, 0u - 251658254u)
          .Writes(kReg.HDR_GAP, 50)
          .Writes(kReg.HDR_TOTAL, 838860750),
      Asking(&FpgaLogic::SetExpTime, kExposure1, 10, 1.0f).Writes(kReg.EXP_TIME_1, 10),
      Asking(&FpgaLogic::SetHDRParam, 0.83, 0, 0)
          .Changes(kReg.HDR_CTRL, 0, 414u << 1)
          .Writes(kReg.HDR_SEG2, 0)
          .Writes(kReg.HDR_SEG3, 86)
          .Writes(kReg.HDR_GAP, 50)
          .Writes(kReg.HDR_TOTAL, 400)}},
};

// --- Geometry, strips, image processing ------------------------------------------------------

const std::vector<CalledFunction> kImageMethods{
    {"SetImageSize",
     {Asking(&FpgaLogic::SetImageSize, 1456, 1088)
          .Writes(kReg.STRIP_IMAGE_WIDTH, 1456)
          .Writes(kReg.STRIP_IMAGE_HEIGHT, 1088),
      AskingWith(kGMAX2509, &FpgaLogic::SetImageSize, 1000, 10)
          .Writes(kReg.STRIP_IMAGE_WIDTH, 1120)
          .Writes(kReg.STRIP_IMAGE_HEIGHT, 10),
      AskingWith(kE2vFlash4k, &FpgaLogic::SetImageSize, 1000, 10)
          .Writes(kReg.STRIP_IMAGE_WIDTH, 1000)
          .Writes(kReg.STRIP_IMAGE_HEIGHT, 10),
      AskingWith(kGSPRINT6502BSI, &FpgaLogic::SetImageSize, 1000, 10)
          .Writes(kReg.STRIP_IMAGE_WIDTH, 1000)
          .Writes(kReg.STRIP_IMAGE_HEIGHT, 10),
      AskingWith(kIMX252, &FpgaLogic::SetImageSize, 1000, 10)
          .Writes(kReg.STRIP_IMAGE_WIDTH, 1000)
          .Writes(kReg.STRIP_IMAGE_HEIGHT, 10),
      Asking(&FpgaLogic::SetImageSize, 1, 2)
          .LosesAccess(0)
          .Fails("SetImageSize fpga_write_addr STRIP_IMAGE_WIDTH error\n"),
      Asking(&FpgaLogic::SetImageSize, 1, 2)
          .Writes(kReg.STRIP_IMAGE_WIDTH, 1)
          .LosesAccess(1)
          .Fails("SetImageSize fpga_write_addr STRIP_IMAGE_HEIGHT error\n")}},
    {"GetImageWidth",
     {Asking(&FpgaLogic::GetImageWidth).Reads(kReg.STRIP_IMAGE_WIDTH, 1120).Returns(1120),
      AskingWith(kE2vFlash4k, &FpgaLogic::GetImageWidth)
          .Reads(kReg.STRIP_IMAGE_WIDTH, 1120)
          .Returns(1120),
      AskingWith(kGSPRINT6502BSI, &FpgaLogic::GetImageWidth)
          .Reads(kReg.STRIP_IMAGE_WIDTH, 1120)
          .Returns(1120),
      AskingWith(kIMX252, &FpgaLogic::GetImageWidth)
          .Reads(kReg.STRIP_IMAGE_WIDTH, 1120)
          .Returns(1120),
      AskingWith(kGMAX2509, &FpgaLogic::GetImageWidth)
          .Reads(kReg.STRIP_IMAGE_WIDTH, 1121)
          .Returns(980)}},
    {"GetImageHeight",
     {Asking(&FpgaLogic::GetImageHeight).Reads(kReg.STRIP_IMAGE_HEIGHT, 640).Returns(640)}},
    // Block counts, for the sensors that need them. Eight bits of the old word are kept.
    {"SetImageReadoutParam",
     {Asking(&FpgaLogic::SetImageReadoutParam, 1456, 1088, kDriveMode11)
          .Writes(kReg.ISP_WIDTH, 0)
          .Writes(kReg.ISP_HEIGHT, 0)
          .Changes(kReg.ISP_CTRL, kAllOnes, 0xFE),
      AskingWith(kIMX252, &FpgaLogic::SetImageReadoutParam, 2064, 1544, kDriveMode00)
          .Writes(kReg.ISP_WIDTH, 0)
          .Writes(kReg.ISP_HEIGHT, 0)
          .Changes(kReg.ISP_CTRL, kAllOnes, 0xFD),
      AskingWith(kGMAX2509, &FpgaLogic::SetImageReadoutParam, 4199, 1024, kDriveMode11)
          .Writes(kReg.ISP_WIDTH, 149)
          .Writes(kReg.ISP_HEIGHT, 36)
          .Changes(kReg.ISP_CTRL, 0x1D, 0x1E),
      AskingWith(kE2vFlash4k, &FpgaLogic::SetImageReadoutParam, 4096, 1080, kDriveMode00)
          .Writes(kReg.ISP_WIDTH, 64)
          .Writes(kReg.ISP_HEIGHT, 16)
          .Changes(kReg.ISP_CTRL, 0, 1),
      AskingWith(kGSPRINT6502BSI, &FpgaLogic::SetImageReadoutParam, 2048, 1152, kDriveMode22)
          .Writes(kReg.ISP_WIDTH, 64)
          .Writes(kReg.ISP_HEIGHT, 36)
          .Changes(kReg.ISP_CTRL, 0, 1)}},
    // Halving one direction keeps the region's offset. Halving both clears it. For the FPGA, the
    // reduced readout of the Sony sensors is a full readout.
    {"SetPLDriveMode",
     {Asking(&FpgaLogic::SetPLDriveMode, 0x00).Changes(kReg.ROI_OFFSET, kAllOnes, 0x01FFFFFF),
      Asking(&FpgaLogic::SetPLDriveMode, 0x11).Changes(kReg.ROI_OFFSET, kAllOnes, 0x06000000),
      Asking(&FpgaLogic::SetPLDriveMode, 0x01).Changes(kReg.ROI_OFFSET, 0x06ABCDEF, 0x02ABCDEF),
      Asking(&FpgaLogic::SetPLDriveMode, 0x10).Changes(kReg.ROI_OFFSET, 0x00ABCDEF, 0x04ABCDEF),
      Asking(&FpgaLogic::SetPLDriveMode, 0x22).Changes(kReg.ROI_OFFSET, 0x07ABCDEF, 0x01ABCDEF)}},
    {"SetBaseThreshold",
     {Asking(&FpgaLogic::SetBaseThreshold, -2).Writes(kReg.BASE_THRESHOLD, 0xFFFFFFFE),
      Asking(&FpgaLogic::SetBaseThreshold, 10)
          .LosesAll()
          .Fails("SetBaseThreshold fpga_write_addr BASE_THRESHOLD error\n")}},
    {"SetStripSelectorImgWidth",
     {Asking(&FpgaLogic::SetStripSelectorImgWidth, 0xFFFF)
          .Writes(kReg.STRIP_SELECTOR_IMAGE_WIDTH, 0xFFFF),
      Asking(&FpgaLogic::SetStripSelectorImgWidth, 1)
          .LosesAll()
          .Fails("SetStripSelectorImgWidth fpga_write_addr STRIP_SELECTOR_IMAGE_WIDTH error\n")}},
    {"SetImageFilterSize",
     {Asking(&FpgaLogic::SetImageFilterSize, 5, 0xFFFF)
          .Writes(kReg.IMG_FILTER_WIDTH, 5)
          .Writes(kReg.IMG_FILTER_HEIGHT, 0xFFFF)
          .Changes(kReg.IMG_FILTER_THRS, kAllOnes, 0xFFFF)
          .Sleeps(1000)
          .Writes(kReg.IMG_FILTER_THRS, 0x1FFFF),
      Asking(&FpgaLogic::SetImageFilterSize, 5, 6)
          .LosesAccess(0)
          .Fails("SetImageFilterSize fpga_write_addr IMG_FILTER_WIDTH error\n"),
      Asking(&FpgaLogic::SetImageFilterSize, 5, 6)
          .Writes(kReg.IMG_FILTER_WIDTH, 5)
          .LosesAccess(1)
          .Fails("SetImageFilterSize fpga_write_addr IMG_FILTER_HEIGHT error\n")}},
    {"SetImageFilterThrs",
     {Asking(&FpgaLogic::SetImageFilterThrs, 0xFFFF)
          .Writes(kReg.IMG_FILTER_THRS, 0xFFFF)
          .Changes(kReg.IMG_FILTER_THRS, 0xFFFF, 0xFFFF)
          .Sleeps(1000)
          .Writes(kReg.IMG_FILTER_THRS, 0x1FFFF),
      Asking(&FpgaLogic::SetImageFilterThrs, 10)
          .LosesAccess(0)
          .Fails("SetImageFilterThrs fpga_write_addr IMG_FILTER_THRS error\n")}},
    // Unlike the exported functions, these return the result of the second write.
    {"SetBrFlag",
     {Asking(&FpgaLogic::SetBrFlag, 1).Writes(kReg.BR_CONT_MODE_B, 1).LosesAccess(0),
      Asking(&FpgaLogic::SetBrFlag, 1)
          .Writes(kReg.BR_CONT_MODE_A, 1)
          .LosesAccess(1)
          .Returns(kAllOnes)}},
    {"SetISPHeight",
     {Asking(&FpgaLogic::SetISPHeight, 0x01000438).Changes(kReg.ISP_HEIGHT, 0xFFFFFF12, 0x00043812),
      Asking(&FpgaLogic::SetISPHeight, 1)
          .Reads(kReg.ISP_HEIGHT, 1)
          .LosesAccess(1)
          .Returns(kAllOnes)}},
    {"SetImgFlippingEnable",
     {Asking(&FpgaLogic::SetImgFlippingEnable, 0).Changes(kReg.ISP_CTRL, kAllOnes, 0xEF),
      Asking(&FpgaLogic::SetImgFlippingEnable, 3).Changes(kReg.ISP_CTRL, 0x09, 0x19),
      Asking(&FpgaLogic::SetImgFlippingEnable, 1)
          .Reads(kReg.ISP_CTRL, 1)
          .LosesAccess(1)
          .Returns(kAllOnes)}},
    {"SetFpgaContinuous", {Asking(&FpgaLogic::SetFpgaContinuous, 5).LosesAll().Returns(kAllOnes)}},
    {"SetCollectMode2", {Asking(&FpgaLogic::SetCollectMode2, 77).Writes(kReg.COLLECT_MODE, 77)}},
    // The result is never true.
    {"GetStripDelay",
     {Asking(&FpgaLogic::GetStripDelay).Reads(kReg.STRIP_DELAY, 40).Returns(40),
      Asking(&FpgaLogic::GetStripDelay)
          .Reads(kReg.STRIP_DELAY, kAllOnes)
          .Prints("GetStripDelay error\n")}},
};

using OnZynq = CallingOn<ZynqFpga>;
TEST_P(OnZynq, DoesWhatItsRowsSay) { CheckAll(); }
INSTANTIATE_TEST_SUITE_P(Trigger, OnZynq, ::testing::ValuesIn(kTriggerMethods), OnZynq::Name);
INSTANTIATE_TEST_SUITE_P(Sensor, OnZynq, ::testing::ValuesIn(kSensorMethods), OnZynq::Name);
INSTANTIATE_TEST_SUITE_P(Image, OnZynq, ::testing::ValuesIn(kImageMethods), OnZynq::Name);

const std::vector<CalledFunction> kSplitTiming{
    {"SetTRow",
     {Asking(&FpgaLogic::SetTRow, 0x10007).Changes(kReg.SENSOR_TIMING, kAllOnes, 0x0007FFFF),
      Asking(&FpgaLogic::SetTRow, kAllOnes).Changes(kReg.SENSOR_TIMING, 0, 0xFFFF0000)}},
    {"SetTGes",
     {Asking(&FpgaLogic::SetTGes, 28).Changes(kReg.SENSOR_TIMING, kAllOnes, 0xFFFF001C),
      Asking(&FpgaLogic::SetTGes, 0x10001).Changes(kReg.SENSOR_TIMING, 0, 0x10001)}},
};

using OnZynqMp = CallingOn<ZynqMpFpga>;
TEST_P(OnZynqMp, DoesWhatItsRowsSay) { CheckAll(); }
INSTANTIATE_TEST_SUITE_P(Timing, OnZynqMp, ::testing::ValuesIn(kSplitTiming), OnZynqMp::Name);

// --- Tests that are not in the table ---------------------------------------------------------

// The first `length` writes of EnableCollectModeSignal.
std::vector<std::string> Enabling(std::size_t length) {
  std::vector<std::string> steps{Wrote(StreamSwitchPort(Block::kImage2, 0), kStreamSwitchPortOff),
                                 Wrote(StreamSwitchPort(Block::kImage2, 1), 0)};
  for (std::size_t i = 2; i < 16; ++i) {
    steps.push_back(Wrote(StreamSwitchPort(Block::kImage2, i), kStreamSwitchPortOff));
  }
  steps.push_back(Wrote(kReg.COLLECT_MODE, 1));
  steps.push_back(Wrote(StreamSwitchControl(Block::kImage2), 2));
  steps.push_back(Wrote(StreamSwitchPort(Block::kImage4, 0), 1));
  for (std::size_t i = 1; i < 16; ++i) {
    steps.push_back(Wrote(StreamSwitchPort(Block::kImage4, i), kStreamSwitchPortOff));
  }
  steps.push_back(Wrote(StreamSwitchControl(Block::kImage4), 2));
  steps.resize(length);
  return steps;
}
constexpr unsigned int kWholeEnabling = 35;

// SetExpNum depends on the collect mode, so the mode must not change before the routing.
TEST_F(ZynqFpga, EnableCollectModeSignalStopsAtAFailedWrite) {
  ASSERT_TRUE(logic().SetCollectMode(kCollectLaserLine));
  for (unsigned int access = 0; access < kWholeEnabling; ++access) {
    tessaline_board_clear_faults();
    tessaline_board_transcript_clear();
    tessaline_board_fault("fpga", "mmap", access, 1, EIO);
    Printed();
    const bool enabled = logic().EnableCollectModeSignal();
    const bool is_mode = access == 16 || access == 18;  // 18 is the memory's first port
    EXPECT_EQ(Printed(), is_mode ? "SetCollectMode error\n" : "SetEnableSignal error\n") << access;
    EXPECT_FALSE(enabled) << access;
    EXPECT_EQ(Steps(), Enabling(access));
    EXPECT_EQ(logic().collect_mode(), kCollectLaserLine) << access;
  }
}

TEST_F(ZynqFpga, EnableCollectModeSignalRoutesImages) {
  ASSERT_TRUE(logic().SetCollectMode(kCollectLaserLine));
  tessaline_board_transcript_clear();
  EXPECT_TRUE(logic().EnableCollectModeSignal());
  EXPECT_EQ(Steps(), Enabling(kWholeEnabling));
  EXPECT_EQ(logic().collect_mode(), kCollectImage);
  EXPECT_TRUE(logic().SetCollectMode2(kCollectLaserLine));
  EXPECT_EQ(logic().collect_mode(), kCollectImage) << "written alone it routes nothing";
}

TEST_F(ZynqFpga, WithoutASensorNothingIsTouched) {
  const LoggedErrors errors;
  DeviceManagerHolder::Instance()->cmos_sensor_.reset();
  EXPECT_FALSE(logic().SetImageSize(1, 2));
  EXPECT_EQ(logic().GetImageWidth(), kAllOnes);
  EXPECT_FALSE(logic().SetImageReadoutParam(1, 2, kDriveMode00));
  EXPECT_EQ(logic().GetCmosMaxDrive(), kAllOnes);
  EXPECT_FALSE(logic().CameraReset());
  EXPECT_FALSE(logic().SetExpDelay());
  EXPECT_THAT(Steps(), IsEmpty());
  EXPECT_THAT(errors.lines(), AllOf(SizeIs(6), Each("Neighbours.cpp: FpgaLogic: there is no image "
                                                    "sensor, call RegisterHardwareInit first")));
}

TEST_F(ZynqFpga, WithoutCoefficientsNothingIsTouched) {
  const LoggedErrors errors;
  EXPECT_FALSE(logic().SetStripRebuildValue(nullptr));
  EXPECT_EQ(Printed(), "");
  EXPECT_THAT(Steps(), IsEmpty());
  EXPECT_THAT(errors.lines(), ElementsAre("Devices/FpgaLogicStrip.cpp: SetStripRebuildValue: no "
                                          "coefficients given"));
}

TEST_F(ZynqFpga, TheFactoryKnowsEverySeries) {
  const std::map<int, bool> has_the_split_timing_word{
      {0, false}, {1, false}, {2, false}, {3, false}, {4, true},   {5, false},
      {6, true},  {7, false}, {8, true},  {9, false}, {10, false}, {-1, false}};
  for (const auto& [series, split] : has_the_split_timing_word) {
    const auto made = FpgaLogicFactory::CreateFpgaLogicBySeries(static_cast<SeriesNumber>(series));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(std::dynamic_pointer_cast<FpgaLogic25>(made) != nullptr, split) << series;
  }
}

}  // namespace
}  // namespace tessaline_test
