#include "Devices/sensor/CmosSensor.h"

#include "log/Log.h"

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

bool CmosSensor::InitializeKeepingReadout() {
  const unsigned int x = roi_x_;
  const unsigned int y = roi_y_;
  const unsigned int height = roi_height_;
  const unsigned int width = roi_width_;
  const ReadoutDriveMode mode = read_out_drive_mode_;
  const ReadoutDriveDirection direction = read_out_drive_direction_;

  bool done = RegisterInitialize(kDriveMode00);
  done &= SetReadoutDriveDirection(direction);
  done &= SetReadoutDriveMode(mode);
  done &= SetROI(x, y, width, height);
  return done;
}

}  // namespace VeltranoSDK
