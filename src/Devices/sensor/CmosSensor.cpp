#include "Devices/sensor/CmosSensor.h"

#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "Neighbours.h"
#include "log/Log.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

CmosSensor::CmosSensor(CmosSensorModel model, std::pair<unsigned int, unsigned int> resolution,
                       products::StripSize strips)
    : model_(model),
      resolution_(resolution),
      roi_height_(resolution.second),
      roi_width_(resolution.first),
      strips_(strips) {}

unsigned int CmosSensor::TransferMaxFrameValue() { return max_frame_value_; }

unsigned int CmosSensor::GetStripBufferSize() { return strips_.Bytes(); }

unsigned int CmosSensor::GetStripWidth() { return strips_.width; }

unsigned int CmosSensor::GetStripHeight() { return strips_.height; }

bool CmosSensor::SetROI(unsigned int x, unsigned int y, unsigned int width, unsigned int height) {
  Trace(__func__);
  roi_x_ = x;
  roi_y_ = y;
  roi_height_ = height;
  roi_width_ = width;
  return SetROIImpl(x, y, width, height);
}

bool CmosSensor::SetReadoutDriveMode(ReadoutDriveMode mode) {
  Trace(__func__);
  read_out_drive_mode_ = mode;
  if (mode == kDriveMode00 || mode == kDriveMode11) {
    const unsigned int divisor = mode == kDriveMode11 ? 2 : 1;
    roi_width_ = resolution_.first / divisor;
    roi_height_ = resolution_.second / divisor;
  }
  return SetReadoutDriveModeImpl(mode);
}

bool CmosSensor::SetReadoutDriveDirection(ReadoutDriveDirection direction) {
  Trace(__func__);
  read_out_drive_direction_ = direction;
  return SetReadoutDriveDirectionImpl(direction);
}

CmosSensor::Readout CmosSensor::readout() const {
  return {roi_x_, roi_y_, roi_width_, roi_height_, read_out_drive_mode_, read_out_drive_direction_};
}

void CmosSensor::PrepareTiming(FpgaLogic& fpga, unsigned int t_ges) {
  fpga.SetTGes(t_ges);
  fpga.SetLasTriPolarity(1);
  fpga.SetCamTriPolarity(1);
}

void CmosSensor::StartTiming(FpgaLogic& fpga, unsigned int off_pause, unsigned int armed_pause) {
  fpga.SetCmosTimingControl(kOff, kOff);
  Pause(off_pause);
  fpga.SetCmosTimingControl(kOff, kOn);
  Pause(armed_pause);
  fpga.SetCmosTimingControl(kOn, kOn);
}

bool CmosSensor::ResetAndRestore(const char* driver, unsigned int gain) {
  const auto fpga = neighbour::Fpga(driver);
  if (!fpga) return false;
  fpga->CameraReset();
  const Readout before = readout();
  bool done = RegisterInitialize(kDriveMode00);
  done &= SetReadoutDriveDirection(before.direction);
  done &= SetReadoutDriveMode(before.mode);
  done &= SetROI(before.x, before.y, before.width, before.height);
  done &= SetGain(gain);
  if (!done) printf("%s::ResetAndInitialize() error.\n", driver);
  return done;
}

}  // namespace VeltranoSDK
