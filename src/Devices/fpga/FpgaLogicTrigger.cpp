// Trigger, encoder and synchronisation controls of FpgaLogic.
#include <algorithm>
#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

// Bits of MASTER_CTRL and IRQ_CTRL that every update clears.
constexpr unsigned int kLostByMaster =
    ~(fpga::kField.master_id.Mask() | fpga::kField.master_state.Mask());
constexpr unsigned int kLostByIrq = ~0xFFFFu;

}  // namespace

// --- Trigger --------------------------------------------------------------------------------

bool FpgaLogic::SetTriMode(TriggerMode mode) {
  Trace(__func__);
  Update(fpga::kField.trigger_mode, mode);
  return true;
}

unsigned int FpgaLogic::GetTriMode() const {
  Trace(__func__);
  return Read(fpga::kField.trigger_mode);
}

bool FpgaLogic::ControlSoftwareTrigger() {
  Trace(__func__);
  Pulse(fpga::kField.software_trigger);
  return true;
}

bool FpgaLogic::SetTriSpacing(unsigned int spacing) {
  Trace(__func__);
  constexpr unsigned int kShortest = 2;
  const bool in_pulses = GetTriMode() == kEncoderTrigger;
  Write(fpga::kReg.TRI_SPACING,
        in_pulses ? spacing : std::max(spacing, kShortest) * fpga::kTicksPerMicrosecond);
  return true;
}

unsigned int FpgaLogic::GetTriSpacing() const {
  Trace(__func__);
  return Read(fpga::kReg.TRI_SPACING);
}

bool FpgaLogic::SetDoorControlEn(STATE state) {
  Trace(__func__);
  if (GetTriMode() > kEncoderTrigger) {
    puts("SetDoorControlEn TriMode invalid parameter!");
    return false;
  }
  Update(fpga::kField.door_control, state);
  return true;
}

unsigned int FpgaLogic::GetDoorControlEn() const {
  Trace(__func__);
  if (GetTriMode() > kEncoderTrigger) {
    puts("GetDoorControlEn TriMode invalid parameter!");
    return kFailed;
  }
  return Read(fpga::kField.door_control);
}

bool FpgaLogic::SetDelayEn(STATE state) {
  Trace(__func__);
  Update(fpga::kField.trigger_delay_enable, state);
  return true;
}

unsigned int FpgaLogic::GetDelayEn() const {
  Trace(__func__);
  return Read(fpga::kField.trigger_delay_enable);
}

bool FpgaLogic::SetTriDelayStandard(TriggerMode standard) {
  Trace(__func__);
  Update(fpga::kField.trigger_delay_standard, standard);
  return true;
}

unsigned int FpgaLogic::GetTriDelayStandard() const {
  Trace(__func__);
  return Read(fpga::kField.trigger_delay_standard);
}

bool FpgaLogic::SetTriDelay(unsigned int delay) {
  Trace(__func__);
  const bool in_counts = GetTriDelayStandard() == kDelayInCounts;
  Write(fpga::kReg.TRI_DELAY, in_counts ? delay : delay * fpga::kTicksPerMicrosecond);
  return true;
}

unsigned int FpgaLogic::GetTriDelay() const {
  Trace(__func__);
  const unsigned int delay = Read(fpga::kReg.TRI_DELAY);
  return GetTriDelayStandard() == kDelayInCounts ? delay : delay / fpga::kTicksPerMicrosecond;
}

bool FpgaLogic::SetGlobalControl(STATE state) {
  Trace(__func__);
  Update(fpga::kField.global_control, state);
  return true;
}

unsigned int FpgaLogic::GetGlobalControl() const {
  Trace(__func__);
  return Read(fpga::kField.global_control);
}

bool FpgaLogic::IntSignalOper() {
  Trace(__func__);
  Write(fpga::kReg.MASTER_CTRL, 0);
  Write(fpga::kReg.TRIGGER_CTRL, 0);
  return true;
}

// --- Encoder --------------------------------------------------------------------------------

bool FpgaLogic::SetReverseMode(ReverseMode mode) {
  Trace(__func__);
  Update(fpga::kField.reverse_mode, mode);
  return true;
}

unsigned int FpgaLogic::GetReverseMode() const {
  Trace(__func__);
  return Read(fpga::kField.reverse_mode);
}

bool FpgaLogic::SetReverseDistance(unsigned int distance) {
  Trace(__func__);
  if (GetReverseMode() != kReverseWithDistance) {
    puts("SetReverseDistance ReverseMode invalid parameter!");
    return false;
  }
  Update(fpga::kField.reverse_distance, distance);
  return true;
}

std::pair<bool, unsigned int> FpgaLogic::GetReverseDistance() const {
  Trace(__func__);
  if (GetReverseMode() != kReverseWithDistance) {
    puts("GetReverseDistance ReverseMode invalid parameter!");
    return {false, 0};
  }
  return {true, Read(fpga::kField.reverse_distance)};
}

unsigned int FpgaLogic::GetEncoderFreq() const {
  Trace(__func__);
  return Read(fpga::kReg.ENCODER_FREQ);
}

// The 64-bit counters keep running between the two reads: nothing latches them.

std::uint64_t FpgaLogic::GetEncoderCounter() const {
  Trace(__func__);
  return Read(fpga::kReg.ENCODER_COUNTER_L, fpga::kReg.ENCODER_COUNTER_H);
}

std::uint64_t FpgaLogic::GetTimerCounter() const {
  Trace(__func__);
  return Read(fpga::kReg.TIMER_COUNTER_L, fpga::kReg.TIMER_COUNTER_H);
}

// --- External trigger -----------------------------------------------------------------------

std::uint64_t FpgaLogic::GetXtrigStart() const {
  Trace(__func__);
  return Read(fpga::kReg.XTRIG_START_L, fpga::kReg.XTRIG_START_H);
}

unsigned int FpgaLogic::GetXtrigLostSta() const {
  Trace(__func__);
  return Read(fpga::kReg.XTRIG_LOST_STA);
}

bool FpgaLogic::TriggerLostReset() {
  Trace(__func__);
  Pulse(fpga::kField.trigger_lost_reset);
  return true;
}

unsigned int FpgaLogic::GetExternalTriggerLevel() const {
  Trace(__func__);
  return Read(fpga::kField.external_trigger_level);
}

bool FpgaLogic::ExternalTriggerIrqCtrl(STATE state) {
  Trace(__func__);
  Merge(fpga::kField.external_trigger_irq_enable, state, kLostByIrq);
  return true;
}

bool FpgaLogic::DaIrqCtrl(STATE state) {
  Trace(__func__);
  Merge(fpga::kField.da_irq_enable, state, kLostByIrq);
  return true;
}

bool FpgaLogic::SetExtinWidth(unsigned int microseconds) {
  Trace(__func__);
  const std::uint64_t ticks = std::uint64_t{microseconds} * 1000 / fpga::kNanosecondsPerTick;
  Write(fpga::kReg.EXTIN_WIDTH, static_cast<unsigned int>(ticks));
  return true;
}

unsigned int FpgaLogic::GetExtinWidth() const {
  Trace(__func__);
  return Read(fpga::kReg.EXTIN_WIDTH);
}

// --- Several sensors on one trigger ---------------------------------------------------------

bool FpgaLogic::SetMasterState(STATE state) {
  Trace(__func__);
  Merge(fpga::kField.master_state, state & 1u, kLostByMaster);
  return true;
}

unsigned int FpgaLogic::GetMasterState() const {
  Trace(__func__);
  return Read(fpga::kField.master_state);
}

bool FpgaLogic::SetMasterConctrolID(unsigned int id) {
  Trace(__func__);
  Merge(fpga::kField.master_id, id & fpga::kField.master_id.LowMask(), kLostByMaster);
  return true;
}

unsigned int FpgaLogic::GetMasterConctrolID() const {
  Trace(__func__);
  return Read(fpga::kField.master_id);
}

}  // namespace VeltranoSDK
