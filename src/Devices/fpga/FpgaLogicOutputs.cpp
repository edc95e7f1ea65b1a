// Digital outputs, DA output and polarities of FpgaLogic.

#include <array>
#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

using fpga::DigitalOutputFields;

struct DelayRegisters {
  fpga::Register low, high;
};

// Indexed by DigitalOutputChannel, like fpga::kField.digital_outputs.
constexpr std::array kDelays{DelayRegisters{fpga::kReg.DO1_DELAY_L, fpga::kReg.DO1_DELAY_H},
                             DelayRegisters{fpga::kReg.DO2_DELAY_L, fpga::kReg.DO2_DELAY_H}};
constexpr std::array kLostStates{fpga::kReg.DO1_LOST_STA, fpga::kReg.DO2_LOST_STA};
constexpr std::array kPolarities{fpga::kField.out1_polarity, fpga::kField.out2_polarity};
constexpr std::array kSetModeErrors{"SetOut1DelayEn error , mode error!",
                                    "SetOut2DelayEn error , mode error!"};
constexpr std::array kGetModeErrors{"GetOut1DelayEn error, mode error!",
                                    "GetOut2DelayEn error , mode error!"};

bool IsOutput(DigitalOutputChannel channel, const char* refusal) {
  if (channel < fpga::kField.digital_outputs.size()) return true;
  puts(refusal);
  return false;
}

constexpr unsigned int kNoOutput = ~0u;

// The six fields of the register, read as one number.
constexpr fpga::Field kAllPolarities{fpga::kReg.POLARITY, 0, 6, "all"};

}  // namespace

bool FpgaLogic::UpdateOutput(DigitalOutputChannel channel, OutputField field, unsigned int value,
                             const char* refusal) {
  if (!IsOutput(channel, refusal)) return false;
  Update(fpga::kField.digital_outputs[channel].*field, value);
  return true;
}

std::optional<unsigned int> FpgaLogic::ReadOutput(DigitalOutputChannel channel, OutputField field,
                                                  const char* refusal) const {
  if (!IsOutput(channel, refusal)) return std::nullopt;
  return Read(fpga::kField.digital_outputs[channel].*field);
}

// --- Shape of the output pulse --------------------------------------------------------------

bool FpgaLogic::SetOutWidth(DigitalOutputChannel channel, unsigned int width) {
  Trace(__func__);
  return UpdateOutput(channel, &DigitalOutputFields::width, width,
                      "SetOutWidth invalid parameter!");
}

unsigned int FpgaLogic::GetOutWidth(DigitalOutputChannel channel) const {
  Trace(__func__);
  return ReadOutput(channel, &DigitalOutputFields::width, "GetOutWidth invalid parameter!")
      .value_or(kNoOutput);
}

bool FpgaLogic::SetOutEvent(DigitalOutputChannel channel, DigitalOutputEvent event) {
  Trace(__func__);
  return UpdateOutput(channel, &DigitalOutputFields::event, event,
                      "SetOutEvent invalid parameter!");
}

// Event and mode read as 0 for either output. The functions of the delay enable check the mode, and
// applications rely on this check to pass.

unsigned int FpgaLogic::GetOutEvent(DigitalOutputChannel channel) const {
  Trace(__func__);
  const auto event =
      ReadOutput(channel, &DigitalOutputFields::event, "GetOutEvent invalid parameter!");
  return event ? 0 : kNoOutput;
}

bool FpgaLogic::SetOutMode(DigitalOutputChannel channel, DigitalOutputMode mode) {
  Trace(__func__);
  return UpdateOutput(channel, &DigitalOutputFields::mode, mode, "SetOutMode invalid parameter!");
}

unsigned int FpgaLogic::GetOutMode(DigitalOutputChannel channel) const {
  Trace(__func__);
  const auto mode =
      ReadOutput(channel, &DigitalOutputFields::mode, "GetOutMode invalid parameter!");
  return mode ? 0 : kNoOutput;
}

// --- Pulses and enable ----------------------------------------------------------------------

bool FpgaLogic::DigitalOutputSWTrigger(DigitalOutputChannel channel) {
  Trace(__func__);
  if (!IsOutput(channel, "SWTrigger invalid parameter!")) return false;
  const auto& output = fpga::kField.digital_outputs[channel];
  // The trigger also ends a FIFO write that was left pending.
  const unsigned int trigger = output.software_trigger.Mask();
  Pulse(output.software_trigger.reg, trigger, trigger | output.fifo_write.Mask());
  return true;
}

bool FpgaLogic::WRFifo(DigitalOutputChannel channel) {
  Trace(__func__);
  if (!IsOutput(channel, "WRFifo invalid parameter!")) return false;
  Pulse(fpga::kField.digital_outputs[channel].fifo_write);
  return true;
}

bool FpgaLogic::SetDigitalOutputEnState(DigitalOutputChannel channel, STATE state) {
  Trace(__func__);
  return UpdateOutput(channel, &DigitalOutputFields::enable, state,
                      "SetDigitalOutputEnState channel error!");
}

unsigned int FpgaLogic::GetDigitalOutputEnState(DigitalOutputChannel channel) const {
  Trace(__func__);
  return ReadOutput(channel, &DigitalOutputFields::enable, "GetDigitalOutputEnState channel error!")
      .value_or(kNoOutput);
}

// --- Delays ---------------------------------------------------------------------------------

bool FpgaLogic::SetOutDelayEn(DigitalOutputChannel channel, STATE state) {
  Trace(__func__);
  if (!IsOutput(channel, "SetOutDelayEn invalid parameter!")) return false;
  if (GetOutMode(channel) != kOutputMode0) {
    // GCOVR_EXCL_START: GetOutMode() is 0 for either output
    puts(kSetModeErrors[channel]);
    return false;
    // GCOVR_EXCL_STOP
  }
  Update(fpga::kField.digital_outputs[channel].delay_enable, state);
  return true;
}

unsigned int FpgaLogic::GetOutDelayEn(DigitalOutputChannel channel) const {
  Trace(__func__);
  if (!IsOutput(channel, "GetOutDelayEn invalid parameter!")) return kNoOutput;
  if (GetOutMode(channel) != kOutputMode0) {
    // GCOVR_EXCL_START: GetOutMode() is 0 for either output
    puts(kGetModeErrors[channel]);
    return kNoOutput;
    // GCOVR_EXCL_STOP
  }
  return Read(fpga::kField.digital_outputs[channel].delay_enable);
}

bool FpgaLogic::SetExtTriDelayStandard(DigitalOutputChannel channel, TriggerMode standard) {
  Trace(__func__);
  if (standard > kDelayInCounts) {
    puts("SetExtTriDelayStandard mode error!");
    return false;
  }
  if (channel == kDaOutput) {
    Update(fpga::kField.da_delay_standard, standard);
    return true;
  }
  return UpdateOutput(channel, &DigitalOutputFields::delay_standard, standard,
                      "SetExtTriDelayStandard channel error!");
}

unsigned int FpgaLogic::GetExtTriDelayStandard(DigitalOutputChannel channel) const {
  Trace(__func__);
  if (channel == kDaOutput) return Read(fpga::kField.da_delay_standard);
  return ReadOutput(channel, &DigitalOutputFields::delay_standard,
                    "GetExtTriDelayStandard channel error!")
      .value_or(kNoOutput);
}

bool FpgaLogic::SetOutDelay(DigitalOutputChannel channel, std::uint64_t delay) {
  Trace(__func__);
  if (!IsOutput(channel, "SetOutDelay invalid parameter!")) return false;
  if (GetExtTriDelayStandard(channel) != kDelayInCounts) delay *= fpga::kTicksPerMicrosecond;
  Write(kDelays[channel].low, static_cast<unsigned int>(delay));
  Write(kDelays[channel].high, static_cast<unsigned int>(delay >> 32));
  return true;
}

std::uint64_t FpgaLogic::GetOutDelay(DigitalOutputChannel channel) const {
  Trace(__func__);
  if (!IsOutput(channel, "GetOutDelay invalid parameter!")) return ~std::uint64_t{0};
  const std::uint64_t delay = Read(kDelays[channel].low, kDelays[channel].high);
  return GetExtTriDelayStandard(channel) == kDelayInCounts ? delay
                                                           : delay / fpga::kTicksPerMicrosecond;
}

bool FpgaLogic::SetDAOutputDelay(unsigned int delay) {
  Trace(__func__);
  const bool in_counts = GetExtTriDelayStandard(kDaOutput) == kDelayInCounts;
  Write(fpga::kReg.DA_OUTPUT_DELAY, in_counts ? delay : delay * fpga::kTicksPerMicrosecond);
  return true;
}

unsigned int FpgaLogic::GetDAOutputDelay() const {
  Trace(__func__);
  const unsigned int delay = Read(fpga::kReg.DA_OUTPUT_DELAY);
  return GetExtTriDelayStandard(kDaOutput) == kDelayInCounts ? delay
                                                             : delay / fpga::kTicksPerMicrosecond;
}

// --- Status ---------------------------------------------------------------------------------

unsigned int FpgaLogic::GetOutLostSta(DigitalOutputChannel channel) const {
  Trace(__func__);
  if (!IsOutput(channel, "GetOutLostSta invalid parameter!")) return 0;
  return Read(kLostStates[channel]);
}

unsigned int FpgaLogic::GetCommVerifyErrorSta() const {
  Trace(__func__);
  return Read(fpga::kReg.COMM_VERIFY_ERROR_STA);
}

// --- Polarities -----------------------------------------------------------------------------

bool FpgaLogic::SetOutPolarity(DigitalOutputChannel channel, unsigned int polarity) {
  Trace(__func__);
  if (!IsOutput(channel, "SetOutPolarity invalid parameter!")) return false;
  Update(kPolarities[channel], polarity);
  return true;
}

bool FpgaLogic::SetCamTriPolarity(unsigned int polarity) {
  Trace(__func__);
  Update(fpga::kField.cam_tri_polarity, polarity);
  return true;
}

bool FpgaLogic::SetCamResPolarity(unsigned int polarity) {
  Trace(__func__);
  Update(fpga::kField.cam_res_polarity, polarity);
  return true;
}

bool FpgaLogic::SetLasTriPolarity(unsigned int polarity) {
  Trace(__func__);
  Update(fpga::kField.las_tri_polarity, polarity);
  return true;
}

bool FpgaLogic::SetExtTriPolarity(unsigned int polarity) {
  Trace(__func__);
  Update(fpga::kField.ext_tri_polarity, polarity);
  return false;
}

unsigned int FpgaLogic::GetPolarity() const {
  Trace(__func__);
  return Read(kAllPolarities);
}

}  // namespace VeltranoSDK
