#include "Runnable/ExternalTriggerGuard.h"

#include <utility>

#include "Devices/fpga/FpgaLogic.h"
#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

// Never destroyed: a pulse may still come while the process ends.
Utility::CallbackSlot<void(unsigned int)>& ExternalTriggerGuard::pulse_signal_callback_ =
    *new Utility::CallbackSlot<void(unsigned int)>;

ExternalTriggerGuard::ExternalTriggerGuard() : UioNotifier("/dev/uio0") {}

bool ExternalTriggerGuard::RegisterPulseSignalCallback(std::function<void(unsigned int)> callback) {
  Trace(__func__);
  pulse_signal_callback_.Replace(std::move(callback));
  return true;
}

void ExternalTriggerGuard::LoopRun() {
  Trace(__func__);
  if (!WaitForInterrupt()) return;
  neighbour::OnFpga("ExternalTriggerGuard", [this](FpgaLogic& fpga) {
    const unsigned int level = fpga.GetExternalTriggerLevel();
    Deliver([level] { pulse_signal_callback_(level); });
  });
  UnmaskInterrupt();
}

void ExternalTriggerGuard::AfterRun() {
  Trace(__func__);
  CloseDevice();
}

}  // namespace VeltranoSDK
