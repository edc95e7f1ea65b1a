#include "SystemSignalHandle.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "DeviceManager.h"
#include "Devices/FpgaLogic.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/RunnableObjectManager.h"
#include "function/RegisterReach.h"

namespace VeltranoSDK {

namespace {

std::atomic_flag shutting_down = ATOMIC_FLAG_INIT;

}  // namespace

void SystemSignalHandle(int /*signal*/) {
  // A second interrupt may reach another thread; the first one ends the process.
  while (shutting_down.test_and_set()) pause();

  const auto video = RunnableObjectManagerHolder::Instance()->video_;
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;
  const auto fpga = DeviceManagerHolder::Instance()->fpga_logic_;

  // The FPGA first, so that no further frames are produced. Registers that were
  // once out of reach block every access for ever, and Ctrl-C must still end it.
  if (fpga != nullptr && !RegistersOutOfReach()) fpga->IntSignalOper();
  video->Cancel();
  strip->Cancel();
  video->ReleaseResource();
  strip->ReleaseResource();
  exit(0);
}

}  // namespace VeltranoSDK
