#include <atomic>
#include <cstdint>

#include "Devices/fpga/FpgaLogic.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/ExternalTriggerGuard.h"
#include "VeltranoApiCall.h"
#include "VeltranoApiNotifier.h"
#include "tessaline/trigger.h"
#include "thread/Pause.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

constexpr unsigned int kDrain = 1'000'000;  // microseconds until frames under way have arrived

// Frames older than the base are not delivered. A thread whose time stamp is held delivers all.
template <typename Stream>
void SetTimeBase(Stream& stream, std::uint64_t now) {
  stream.SetMinTimeStamp(stream.TimeStampHold() ? 0 : now);
}

}  // namespace

extern "C" {

int SetTriMode(unsigned int mode) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetTriMode, mode);
}

int TricontrolSWTrigger(void) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::ControlSoftwareTrigger);
}

int SetTriSpacing(unsigned int spacing) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetTriSpacing, spacing);
}

unsigned int GetTriSpacing(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetTriSpacing);
}

int SetDoorControlEn(unsigned int state) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetDoorControlEn, state);
}

unsigned int GetDoorControlEn(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetDoorControlEn);
}

int SetTriDelayStandard(unsigned int standard) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetTriDelayStandard, standard);
}

unsigned int GetTriDelayStandard(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetTriDelayStandard);
}

int SetDelayEn(unsigned int state) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetDelayEn, state);
}

int SetTriDelay(unsigned int delay) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetTriDelay, delay);
}

unsigned int GetTriDelay(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetTriDelay);
}

int SetReverseMode_io(unsigned int mode) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetReverseMode, mode);
}

unsigned int GetReverseMode_io(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetReverseMode);
}

int SetReverseDistance(unsigned int distance) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetReverseDistance, distance);
}

unsigned int GetReverseDistance(void) {
  return Call<unsigned int>(__func__, kFpga, [](const FpgaLogic& fpga) {
    const auto [known, distance] = fpga.GetReverseDistance();
    return known ? distance : Failure<unsigned int>();
  });
}

unsigned int GetEncoderFreq(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetEncoderFreq);
}

uint64_t GetEncoderCounter(void) {
  return Forward<uint64_t>(__func__, kFpga, &FpgaLogic::GetEncoderCounter);
}

uint64_t GetTimerCounter(void) {
  return Forward<uint64_t>(__func__, kFpga, &FpgaLogic::GetTimerCounter);
}

unsigned int GetXtrigLostSta(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetXtrigLostSta);
}

int TriggerLostReset(void) { return Forward<int>(__func__, kFpga, &FpgaLogic::TriggerLostReset); }

int SetExternSignalFilter(unsigned int microseconds) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetExtinWidth, microseconds);
}

int SetLasTriPolarity(unsigned int polarity) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetLasTriPolarity, polarity);
}

int SetExtTriggerState(unsigned int state) {
  return SwitchNotifier(__func__, &RunnableObjectManager::trigger_guard_,
                        &FpgaLogic::ExternalTriggerIrqCtrl, state);
}

int SetGlobalControl(unsigned int state) {
  static std::atomic<bool> SetGlobalControl_is_enable_status = false;
  return Call<int>(__func__, kFpga, [state](FpgaLogic& fpga) {
    if (state == kOn) SetGlobalControl_is_enable_status = true;
    fpga.SetGlobalControl(static_cast<STATE>(state));
    if (state == kOff) {
      if (SetGlobalControl_is_enable_status) Pause(kDrain);
      SetGlobalControl_is_enable_status = false;
      const std::uint64_t now = fpga.GetTimerCounter();
      SetTimeBase(*RunnableObjectManagerHolder::Instance()->strip_, now);
      SetTimeBase(*RunnableObjectManagerHolder::Instance()->video_, now);
    }
    return 0;
  });
}

unsigned int GetGlobalControl(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetGlobalControl);
}

int SetMasterState(unsigned int state) {
  return Call<int>(__func__, kFpga, [state](FpgaLogic& fpga) {
    fpga.SetMasterState(static_cast<STATE>(state));
    RunnableObjectManagerHolder::Instance()->strip_->SetTimeStampHold(state != 0);
    RunnableObjectManagerHolder::Instance()->video_->SetTimeStampHold(state != 0);
    return 0;
  });
}

unsigned int GetMasterState(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetMasterState);
}

int SetMasterConctrolID(unsigned int id) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetMasterConctrolID, id);
}

unsigned int GetMasterConctrolID(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetMasterConctrolID);
}

}  // extern "C"
