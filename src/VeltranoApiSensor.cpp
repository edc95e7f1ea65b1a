#include "Devices/CmosSensor.h"
#include "Devices/FpgaLogic.h"
#include "VeltranoApiCall.h"
#include "tessaline/sensor.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

}  // namespace

extern "C" {

int SetExposureNum(unsigned int count) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetExposureNum, count);
}

unsigned int GetExposureNum(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetExpNum);
}

int SetExposureTime(unsigned int index, unsigned int time) {
  const Entry entry(__func__);
  return Call<int>(entry, kSensor, [&](CmosSensor& sensor) {
    // Exposures count from 1 here, slots from 0 in the FPGA.
    return Forward<int>(entry, kFpga, &FpgaLogic::SetExpTime, index - 1, time,
                        sensor.GetExposureTimeUnit());
  });
}

int SetCmosGain(unsigned int gain) {
  return Call<int>(__func__, kSensor,
                   [gain](CmosSensor& sensor) { return sensor.SetGain(gain) ? 1 : 0; });
}

int SetSensingMode(unsigned int mode) {
  const Entry entry(__func__);
  return Call<int>(entry, kSensor, [&](const CmosSensor& sensor) {
    if (sensor.model() == kGSPRINT6502BSI) {
      Forward<int>(entry, kFpga, &FpgaLogic::SetHDREnable, mode);
    }
    return 0;
  });
}

int SetHDRParam(unsigned int /*first*/, unsigned short /*second*/) {
  return Call<int>(__func__, kSensor, [](const CmosSensor&) { return 0; });
}

void SetHDRParam24(double first, double second, double third) {
  const Entry entry(__func__);
  Call<void>(entry, kSensor, [&](const CmosSensor& sensor) {
    if (sensor.model() == kGSPRINT6502BSI) {
      Forward<void>(entry, kFpga, &FpgaLogic::SetHDRParam, first, second, third);
    }
  });
}

void SetFpgaContinuous(unsigned int continuous) {
  const Entry entry(__func__);
  Call<void>(entry, kSensor, [&](const CmosSensor& sensor) {
    if (sensor.model() == kGSPRINT6502BSI) {
      Forward<void>(entry, kFpga, &FpgaLogic::SetFpgaContinuous, continuous);
    }
  });
}

int SetDriveMode(unsigned int mode) {
  return Forward<int>(__func__, kSensor, &CmosSensor::SetReadoutDriveMode, mode);
}

unsigned int GetDriveMode(void) {
  return Forward<unsigned int>(__func__, kSensor, &CmosSensor::read_out_drive_mode);
}

int SetROI1(unsigned int x, unsigned int y, unsigned int width, unsigned int height) {
  return Forward<int>(__func__, kSensor, &CmosSensor::SetROI, x, y, width, height);
}

int SetReverseMode(unsigned int direction) {
  return Forward<int>(__func__, kSensor, &CmosSensor::SetReadoutDriveDirection, direction);
}

unsigned int GetImageWidth(void) {
  return Forward<unsigned int>(__func__, kSensor, &CmosSensor::roi_width);
}

unsigned int GetImageHeight(void) {
  return Forward<unsigned int>(__func__, kSensor, &CmosSensor::roi_height);
}

unsigned int GetCmosMaxDrive(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetCmosMaxDrive);
}

unsigned int TransferMaxFrameValue(void) {
  return Forward<unsigned int>(__func__, kSensor, &CmosSensor::TransferMaxFrameValue);
}

int GetSensorTemp(void) {
  return Call<int>(__func__, kSensor,
                   [](CmosSensor& sensor) { return sensor.GetSensorTemp() != 0; });
}

}  // extern "C"
