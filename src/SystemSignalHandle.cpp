#include "SystemSignalHandle.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>

#include "DeviceManager.h"
#include "Devices/FpgaLogic.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/RunnableObjectManager.h"
#include "function/InterruptibleWait.h"
#include "function/RegisterReach.h"

namespace VeltranoSDK {

namespace {

std::atomic_flag shutting_down = ATOMIC_FLAG_INIT;

// A handler may wait for something that this very thread holds. All waits for handlers
// end so early that the process is gone within two seconds of the Ctrl-C.
constexpr std::chrono::milliseconds kForHandlers{1300};

}  // namespace

void SystemSignalHandle(int /*signal*/) {
  // A second interrupt may reach another thread; the first one ends the process.
  while (shutting_down.test_and_set()) pause();

  EndWaitsBy(std::chrono::steady_clock::now() + kForHandlers);

  const auto video = RunnableObjectManagerHolder::Instance()->video_;
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;
  const auto fpga = DeviceManagerHolder::Instance()->fpga_logic_;

  // The FPGA first, so that no further frames are produced.
  DoNotWaitForLostRegisters();
  if (fpga != nullptr) fpga->IntSignalOper();
  // Both, so that the one's handlers end while the other's are waited for.
  video->StopDelivering();
  strip->StopDelivering();
  video->Cancel();
  strip->Cancel();
  video->ReleaseResource();
  strip->ReleaseResource();
  exit(0);
}

}  // namespace VeltranoSDK
