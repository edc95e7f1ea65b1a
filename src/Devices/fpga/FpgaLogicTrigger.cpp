// Trigger, encoder and synchronisation controls of FpgaLogic.
#include <algorithm>
#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

// MASTER_CTRL and IRQ_CTRL lose these bits on an update.
constexpr unsigned int kLostByMaster = ~(fpga::kMasterId.Mask() | fpga::kMasterState.Mask());
constexpr unsigned int kLostByIrq = ~0xFFFFu;

}  // namespace

// --- Trigger --------------------------------------------------------------------------------

bool FpgaLogic::SetTriMode(TriggerMode mode) {
  Trace(__func__);
  Update(fpga::kTriggerMode, mode);
  return true;
}

unsigned int FpgaLogic::GetTriMode() const {
  Trace(__func__);
  return Read(fpga::kTriggerMode);
}

bool FpgaLogic::ControlSoftwareTrigger() {
  Trace(__func__);
  Pulse(fpga::kSoftwareTrigger);
  return true;
}

bool FpgaLogic::SetTriSpacing(unsigned int spacing) {
  Trace(__func__);
  constexpr unsigned int kShortest = 2;
  const bool in_pulses = GetTriMode() == kEncoderTrigger;
  Write(fpga::TRI_SPACING,
        in_pulses ? spacing : std::max(spacing, kShortest) * fpga::kTicksPerMicrosecond);
  return true;
}

unsigned int FpgaLogic::GetTriSpacing() const {
  Trace(__func__);
  return Read(fpga::TRI_SPACING);
}

bool FpgaLogic::SetDoorControlEn(STATE state) {
  Trace(__func__);
  if (GetTriMode() > kEncoderTrigger) {
    puts("SetDoorControlEn TriMode invalid parameter!");
    return false;
  }
  Update(fpga::kDoorControl, state);
  return true;
}

unsigned int FpgaLogic::GetDoorControlEn() const {
  Trace(__func__);
  if (GetTriMode() > kEncoderTrigger) {
    puts("GetDoorControlEn TriMode invalid parameter!");
    return kFailed;
  }
  return Read(fpga::kDoorControl);
}

bool FpgaLogic::SetDelayEn(STATE state) {
  Trace(__func__);
  Update(fpga::kTriggerDelayEnable, state);
  return true;
}

unsigned int FpgaLogic::GetDelayEn() const {
  Trace(__func__);
  return Read(fpga::kTriggerDelayEnable);
}

bool FpgaLogic::SetTriDelayStandard(TriggerMode standard) {
  Trace(__func__);
  Update(fpga::kTriggerDelayStandard, standard);
  return true;
}

unsigned int FpgaLogic::GetTriDelayStandard() const {
  Trace(__func__);
  return Read(fpga::kTriggerDelayStandard);
}

bool FpgaLogic::SetTriDelay(unsigned int delay) {
  Trace(__func__);
  const bool in_counts = GetTriDelayStandard() == kDelayInCounts;
  Write(fpga::TRI_DELAY, in_counts ? delay : delay * fpga::kTicksPerMicrosecond);
  return true;
}

unsigned int FpgaLogic::GetTriDelay() const {
  Trace(__func__);
  const unsigned int delay = Read(fpga::TRI_DELAY);
  return GetTriDelayStandard() == kDelayInCounts ? delay : delay / fpga::kTicksPerMicrosecond;
}

bool FpgaLogic::SetGlobalControl(STATE state) {
  Trace(__func__);
  Update(fpga::kGlobalControl, state);
  return true;
}

unsigned int FpgaLogic::GetGlobalControl() const {
  Trace(__func__);
  return Read(fpga::kGlobalControl);
}

bool FpgaLogic::IntSignalOper() {
  Trace(__func__);
  Write(fpga::MASTER_CTRL, 0);
  Write(fpga::TRIGGER_CTRL, 0);
  return true;
}

// --- Encoder --------------------------------------------------------------------------------

bool FpgaLogic::SetReverseMode(ReverseMode mode) {
  Trace(__func__);
  Update(fpga::kReverseMode, mode);
  return true;
}

unsigned int FpgaLogic::GetReverseMode() const {
  Trace(__func__);
  return Read(fpga::kReverseMode);
}

bool FpgaLogic::SetReverseDistance(unsigned int distance) {
  Trace(__func__);
  if (GetReverseMode() != kReverseWithDistance) {
    puts("SetReverseDistance ReverseMode invalid parameter!");
    return false;
  }
  Update(fpga::kReverseDistance, distance);
  return true;
}

std::pair<bool, unsigned int> FpgaLogic::GetReverseDistance() const {
  Trace(__func__);
  if (GetReverseMode() != kReverseWithDistance) {
    puts("GetReverseDistance ReverseMode invalid parameter!");
    return {false, 0};
  }
  return {true, Read(fpga::kReverseDistance)};
}

unsigned int FpgaLogic::GetEncoderFreq() const {
  Trace(__func__);
  return Read(fpga::ENCODER_FREQ);
}

// The 64-bit counters run on between the two reads: nothing latches them.

std::uint64_t FpgaLogic::GetEncoderCounter() const {
  Trace(__func__);
  return Read(fpga::ENCODER_COUNTER_L, fpga::ENCODER_COUNTER_H);
}

std::uint64_t FpgaLogic::GetTimerCounter() const {
  Trace(__func__);
  return Read(fpga::TIMER_COUNTER_L, fpga::TIMER_COUNTER_H);
}

// --- External trigger -----------------------------------------------------------------------

std::uint64_t FpgaLogic::GetXtrigStart() const {
  Trace(__func__);
  return Read(fpga::XTRIG_START_L, fpga::XTRIG_START_H);
}

unsigned int FpgaLogic::GetXtrigLostSta() const {
  Trace(__func__);
  return Read(fpga::XTRIG_LOST_STA);
}

bool FpgaLogic::TriggerLostReset() {
  Trace(__func__);
  Pulse(fpga::kTriggerLostReset);
  return true;
}

unsigned int FpgaLogic::GetExternalTriggerLevel() const {
  Trace(__func__);
  return Read(fpga::kExternalTriggerLevel);
}

bool FpgaLogic::ExternalTriggerIrqCtrl(STATE state) {
  Trace(__func__);
  Merge(fpga::kExternalTriggerIrqEnable, state, kLostByIrq);
  return true;
}

bool FpgaLogic::DaIrqCtrl(STATE state) {
  Trace(__func__);
  Merge(fpga::kDaIrqEnable, state, kLostByIrq);
  return true;
}

bool FpgaLogic::SetExtinWidth(unsigned int microseconds) {
  Trace(__func__);
  const std::uint64_t ticks = std::uint64_t{microseconds} * 1000 / fpga::kNanosecondsPerTick;
  Write(fpga::EXTIN_WIDTH, static_cast<unsigned int>(ticks));
  return true;
}

unsigned int FpgaLogic::GetExtinWidth() const {
  Trace(__func__);
  return Read(fpga::EXTIN_WIDTH);
}

// --- Several sensors on one trigger ---------------------------------------------------------

bool FpgaLogic::SetMasterState(STATE state) {
  Trace(__func__);
  Merge(fpga::kMasterState, state & 1u, kLostByMaster);
  return true;
}

unsigned int FpgaLogic::GetMasterState() const {
  Trace(__func__);
  return Read(fpga::kMasterState);
}

bool FpgaLogic::SetMasterConctrolID(unsigned int id) {
  Trace(__func__);
  Merge(fpga::kMasterId, id & fpga::kMasterId.LowMask(), kLostByMaster);
  return true;
}

unsigned int FpgaLogic::GetMasterConctrolID() const {
  Trace(__func__);
  return Read(fpga::kMasterId);
}

}  // namespace VeltranoSDK
