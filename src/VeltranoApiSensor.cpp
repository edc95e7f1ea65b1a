#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"
#include "VeltranoApiCall.h"
#include "tessaline/sensor.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

// The sensor as a `Driver`, or null when it is another one.
template <typename Driver>
Driver* As(CmosSensor& sensor) {
  return dynamic_cast<Driver*>(&sensor);
}

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
    if (auto* const e2v = As<E2vFlash4k>(sensor); e2v != nullptr && e2v->sensing()) {
      // The sensor times the exposure; the FPGA only starts it.
      e2v->SetExposureTime(time);
      time = 1;
    }
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
  return Call<int>(entry, kSensor, [&](CmosSensor& sensor) {
    if (auto* const e2v = As<E2vFlash4k>(sensor)) {
      e2v->SetSensingMode(static_cast<E2vFlash4k::Sensing>(mode));
    } else if (auto* const gsprint = As<GSPRINT6502BSI>(sensor)) {
      Forward<int>(entry, kFpga, &FpgaLogic::SetHDREnable, mode);
      gsprint->SetHdr(mode != 0);
    }
    return 0;
  });
}

int SetHDRParam(unsigned int first, unsigned short second) {
  return Call<int>(__func__, kSensor, [&](CmosSensor& sensor) {
    if (auto* const e2v = As<E2vFlash4k>(sensor)) {
      e2v->SetHDRParam(static_cast<E2vFlash4k::KPosi>(first), second);
    }
    return 0;
  });
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
