// Image size, readout and region of interest of FpgaLogic: all that must match the image sensor.
#include <array>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/CmosSensor.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

// The FPGA packs 28 pixels of the GMAX2509 into 32 of its own units.
constexpr unsigned int kGmaxPixels = 28;
constexpr unsigned int kGmaxUnits = 32;

// Pixels per block of the readout; 0 means that the FPGA needs no block count.
unsigned int PixelsPerBlock(CmosSensorModel model) {
  switch (model) {
    case kGMAX2509:
      return kGmaxPixels;
    case kE2vFlash4k:
      return 64;
    case kGSPRINT6502BSI:
      return 32;
    default:
      return 0;
  }
}

constexpr unsigned int kNormalReadout = 1;
constexpr unsigned int kHalfReadout = 2;

constexpr unsigned int kMeasuringRangeMask = 0x3FFFFFF;

struct DriveCode {
  unsigned int mode;
  unsigned int code;
};
// The FPGA's codes for a readout that halves neither, one or both directions.
constexpr std::array kDriveCodes{DriveCode{0x00, 0}, DriveCode{0x01, 1}, DriveCode{0x10, 2},
                                 DriveCode{0x11, 3}};

unsigned int PlDriveCode(unsigned int mode) {
  for (const DriveCode& entry : kDriveCodes) {
    if (entry.mode == mode) return entry.code;
  }
  return 0;
}

}  // namespace

bool FpgaLogic::SetImageSize(unsigned int width, unsigned int height) {
  Trace(__func__);
  const auto sensor = Sensor();
  if (!sensor) return false;
  if (sensor->model() == kGMAX2509) width = width / kGmaxPixels * kGmaxUnits;
  return WriteOrTell(fpga::kReg.STRIP_IMAGE_WIDTH, width,
                     "SetImageSize fpga_write_addr STRIP_IMAGE_WIDTH error") &&
         WriteOrTell(fpga::kReg.STRIP_IMAGE_HEIGHT, height,
                     "SetImageSize fpga_write_addr STRIP_IMAGE_HEIGHT error");
}

unsigned int FpgaLogic::GetImageWidth() const {
  Trace(__func__);
  const auto sensor = Sensor();
  if (!sensor) return kFailed;
  const unsigned int width = Read(fpga::kReg.STRIP_IMAGE_WIDTH);
  return sensor->model() == kGMAX2509 ? width / kGmaxUnits * kGmaxPixels : width;
}

unsigned int FpgaLogic::GetImageHeight() const {
  Trace(__func__);
  return Read(fpga::kReg.STRIP_IMAGE_HEIGHT);
}

bool FpgaLogic::SetImageReadoutParam(unsigned int width, unsigned int height,
                                     ReadoutDriveMode mode) {
  Trace(__func__);
  const auto sensor = Sensor();
  if (!sensor) return false;
  const unsigned int block = PixelsPerBlock(sensor->model());
  Write(fpga::kReg.ISP_WIDTH, block == 0 ? 0 : width / block);
  Write(fpga::kReg.ISP_HEIGHT, block == 0 ? 0 : height / block);
  Merge(fpga::kField.isp_readout_mode, mode == kDriveMode11 ? kHalfReadout : kNormalReadout,
        kLostByIspControl);
  return true;
}

bool FpgaLogic::SetPLDriveMode(ReadoutDriveMode mode) {
  Trace(__func__);
  // Half readout starts from a cleared offset.
  const unsigned int mask = mode == kDriveMode11 ? ~0u : fpga::kField.pl_drive_mode.Mask();
  Update(fpga::kReg.ROI_OFFSET, mask, fpga::kField.pl_drive_mode.In(0, PlDriveCode(mode)));
  return true;
}

bool FpgaLogic::SetRoiOffset(unsigned int x, unsigned int y) {
  Trace(__func__);
  const unsigned int mask = fpga::kField.roi_offset_x.Mask() | fpga::kField.roi_offset_y.Mask();
  Update(fpga::kReg.ROI_OFFSET, mask,
         fpga::kField.roi_offset_y.In(fpga::kField.roi_offset_x.In(0, x), y));
  return true;
}

bool FpgaLogic::SetMeasuringRange(unsigned int start, unsigned int end) {
  Trace(__func__);
  Write(fpga::kReg.MEASURING_RANGE_START, start & kMeasuringRangeMask);
  Write(fpga::kReg.MEASURING_RANGE_END, end & kMeasuringRangeMask);
  return true;
}

}  // namespace VeltranoSDK
