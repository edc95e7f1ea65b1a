#pragma once

#include <cstdio>
#include <memory>

#include "Devices/fpga/FpgaLogic.h"
#include "VeltranoApiCall.h"
#include "thread/Slot.h"

namespace VeltranoSDK::api {

// Switches an interrupt notifier: first the thread, then the interrupt in the FPGA. Switching on
// what is on returns -2, switching off what is off returns 0; both are reported on standard output.
template <typename Notifier>
int SwitchNotifier(const Entry& entry, Slot<Notifier> RunnableObjectManager::*member,
                   bool (FpgaLogic::*enable_interrupt)(STATE), unsigned int state) {
  if (state != kOn && state != kOff) return -1;
  return Guarded<int>(entry, [&] {
    auto& slot = RunnableObjectManagerHolder::Instance()->*member;
    bool switched = true;
    if (state == kOff) {
      const auto notifier = slot.Take();
      if (notifier == nullptr) {
        printf("%s This thread has been closed!\n ", entry.function());
        return 0;
      }
      notifier->Cancel();
      // Skipped if it was switched on again meanwhile.
      slot.WhileEmpty([&] {
        if (const auto fpga = Fetch(entry, kFpga)) switched = (fpga.get()->*enable_interrupt)(kOff);
      });
      return switched ? 0 : -1;
    }
    const auto fpga = Fetch(entry, kFpga);
    if (fpga == nullptr) return -1;
    const bool was_off = slot.Fill([&] {
      const auto notifier = std::make_shared<Notifier>();
      notifier->Start();
      notifier->Detach();
      switched = (fpga.get()->*enable_interrupt)(kOn);
      return notifier;
    });
    if (!was_off) {
      printf("%s This thread has been opened!\n ", entry.function());
      return -2;
    }
    return switched ? 0 : -1;
  });
}

}  // namespace VeltranoSDK::api
