#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/RegisterWrite.h"
#include "Devices/sensor/sony/ImxSensorI2cInterface.h"

namespace VeltranoSDK {

// What the two Sony sensors have in common: register bus, gain, temperature, identification, flip,
// and leaving standby.
class SonySensor : public CmosSensor {
 public:
  bool SetGain(unsigned int gain) override;
  unsigned int GetSensorTemp() override;
  unsigned int GetSensorVer(unsigned int kind) override;

 protected:
  // Pauses in microseconds while leaving standby.
  struct WakeUp {
    unsigned int oscillator;
    unsigned int pll;
    unsigned int timing_off;
    unsigned int timing_armed;
  };

  // The same for the first start after power-up.
  struct PowerUp {
    WakeUp wake_up;
    unsigned int t_ges;
    unsigned int after_timing;
    unsigned int after_standby;
  };

  SonySensor(CmosSensorModel model, std::pair<unsigned int, unsigned int> resolution,
             unsigned char bus_address, unsigned int invalid_kind_result);

  bool SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) override;

  // Writes one register. A failure prints `failure`, a format for the register's number.
  bool Write(const RegisterWrite& write, const char* failure);
  // In order; stops at the first failure.
  bool WriteAll(std::span<const RegisterWrite> writes, const char* failure);
  bool EnterStandby(const char* failure);
  // Starts the chip and then, step by step, the FPGA's timing for it.
  bool LeaveStandby(FpgaLogic& fpga, const WakeUp& pauses, const char* failure);
  // Starts the chip once and returns to standby: it accepts programming only after it has run.
  bool RunOnce(FpgaLogic& fpga, const PowerUp& start);
  // The second half of LeaveStandby, for a chip that is already started.
  static void StartTimingWhenReady(FpgaLogic& fpga, const WakeUp& pauses);

  ImxSensorI2cInterface i2c_;

 private:
  const unsigned int invalid_kind_result_;
};

}  // namespace VeltranoSDK
