#pragma once

#include <cstdio>
#include <memory>

#include "Devices/FpgaLogic.h"
#include "VeltranoApiCall.h"

namespace VeltranoSDK::api {

// Switches an interrupt notifier: the thread first, then the interrupt in the
// FPGA. On while on is -2, off while off is 0, both told on the standard output.
template <typename Notifier>
int SwitchNotifier(const Entry& entry, std::shared_ptr<Notifier> RunnableObjectManager::*member,
                   bool (FpgaLogic::*enable_interrupt)(STATE), unsigned int state) {
  auto& slot = RunnableObjectManagerHolder::Instance()->*member;
  if (state == kOn) {
    if (slot != nullptr) {
      printf("%s This thread has been opened!\n ", entry.function());
      return -2;
    }
    return Call<int>(entry, kFpga, [&](FpgaLogic& fpga) {
      // In its slot before it starts: a handler may switch it off again at once.
      const auto notifier = slot = std::make_shared<Notifier>();
      notifier->Start();
      notifier->Detach();
      return (fpga.*enable_interrupt)(kOn);
    });
  }
  if (state == kOff) {
    if (slot == nullptr) {
      printf("%s This thread has been closed!\n ", entry.function());
      return 0;
    }
    return Call<int>(entry, kFpga, [&](FpgaLogic& fpga) {
      slot->Cancel();
      slot.reset();
      return (fpga.*enable_interrupt)(kOff);
    });
  }
  return -1;
}

}  // namespace VeltranoSDK::api
