#include "Devices/sensor/sony/SonySensor.h"

#include <algorithm>
#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/sony/SonyRegisters.h"
#include "Devices/sensor/sony/SonyTexts.h"
#include "log/Log.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kHighestGain = 48;  // dB
constexpr unsigned int kBusFailed = 0xFFFFFFFF;

}  // namespace

SonySensor::SonySensor(CmosSensorModel model, std::pair<unsigned int, unsigned int> resolution,
                       unsigned char bus_address, unsigned int invalid_kind_result)
    : CmosSensor(model, resolution), i2c_(bus_address), invalid_kind_result_(invalid_kind_result) {}

bool SonySensor::SetGain(unsigned int gain) {
  Trace(__func__);
  const unsigned int tenths = std::min(gain, kHighestGain) * 10;
  return Write(RegisterWrite{sony::kGainHigh, HighByte(tenths)}.Only(0x01), sony::kGainFailed) &&
         Write({sony::kGainLow, LowByte(tenths)}, sony::kGainFailed);
}

unsigned int SonySensor::GetSensorTemp() {
  Trace(__func__);
  if (!Write({sony::kTemperatureLatch, 1}, sony::kTemperatureFailed)) return kBusFailed;
  const unsigned int low = i2c_.Read(sony::kTemperatureLow);
  const unsigned int high = i2c_.Read(sony::kTemperatureHigh);
  // The code is valid even when the latch cannot be released.
  Write({sony::kTemperatureLatch, 0}, sony::kTemperatureFailed);
  return WordOf(high & 0x03, low);
}

unsigned int SonySensor::GetSensorVer(unsigned int kind) {
  Trace(__func__);
  if (kind > 1) {
    puts("GetSensorVer invalid parameter");
    return invalid_kind_result_;
  }
  unsigned int version = 0;
  if (kind == 0) {
    const unsigned int low = i2c_.Read(sony::kTypeLow);
    const unsigned int high = i2c_.Read(sony::kTypeHigh);
    version = (high & 0x7F) << 2 | low >> 6;
  } else {
    version = i2c_.Read(sony::kTypeHigh) >> 7;
  }
  puts("GetSensorVer Type succeffful!");
  return version;
}

bool SonySensor::SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) {
  Trace(__func__);
  return Write(RegisterWrite{sony::kFlip, LowByte(direction)}.Only(0x03), sony::kFlipFailed);
}

bool SonySensor::Write(const RegisterWrite& write, const char* failure) {
  if (i2c_.Write(write.address, write.ValueOn(i2c_))) return true;
  char text[80];
  snprintf(text, sizeof text, failure, write.named);
  puts(text);
  return false;
}

bool SonySensor::WriteAll(std::span<const RegisterWrite> writes, const char* failure) {
  return std::all_of(writes.begin(), writes.end(),
                     [&](const RegisterWrite& write) { return Write(write, failure); });
}

bool SonySensor::EnterStandby(const char* failure) { return Write({sony::kStandby, 1}, failure); }

bool SonySensor::LeaveStandby(FpgaLogic& fpga, const WakeUp& pauses, const char* failure) {
  if (!Write({sony::kStandby, 0}, failure)) return false;
  StartTimingWhenReady(fpga, pauses);
  return true;
}

bool SonySensor::RunOnce(FpgaLogic& fpga, const PowerUp& start) {
  if (!LeaveStandby(fpga, start.wake_up, sony::kInitFailed)) return false;
  fpga.SetTGes(start.t_ges);
  fpga.SetCmosTimingControl(kOff, kOn);
  Pause(start.after_timing);
  if (!EnterStandby(sony::kInitFailed)) return false;
  Pause(start.after_standby);
  fpga.SetLasTriPolarity(1);
  return true;
}

void SonySensor::StartTimingWhenReady(FpgaLogic& fpga, const WakeUp& pauses) {
  Pause(pauses.oscillator);
  Pause(pauses.pll);
  StartTiming(fpga, pauses.timing_off, pauses.timing_armed);
}

}  // namespace VeltranoSDK
