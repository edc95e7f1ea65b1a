#include "SystemSignalHandle.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <optional>

#include "DeviceManager.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/RunnableObjectManager.h"
#include "function/RegisterLock.h"
#include "log/Log.h"
#include "thread/EndGuard.h"
#include "thread/InterruptibleWait.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK {

namespace {

std::atomic<pid_t> owner{0};
// Closed at shutdown, so that a descriptor is free for stopping the FPGA.
std::atomic<int> spare_descriptor{-1};
std::atomic_flag shutting_down = ATOMIC_FLAG_INIT;

// Handlers of the application, and exit(), may wait for what the interrupted thread holds. Waits
// for handlers end early enough for a normal exit; after that the process is ended by force.
constexpr std::chrono::milliseconds kForHandlers{1300};
constexpr std::chrono::milliseconds kForEverything{2000};

// For a forked child of the application: the device belongs to its parent.
void EndAsAnyProcess() {
  signal(SIGINT, SIG_DFL);
  kill(getpid(), SIGINT);  // delivered when the handler returns
}

// exit() runs on the interrupted thread. A destructor that joins this same thread throws, which
// would end the process by SIGABRT.
void EndQuietlyAtAbort() {
  struct sigaction action {};
  if (sigaction(SIGABRT, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
  signal(SIGABRT, [](int) { _exit(0); });
}

}  // namespace

void SystemSignalHandle(int /*signal*/) {
  signal(SIGINT, SIG_IGN);
  if (getpid() != owner) return EndAsAnyProcess();
  // Another thread may have been interrupted at the same moment.
  if (shutting_down.test_and_set()) return;

  const auto now = std::chrono::steady_clock::now();
  EndGuard::EndProcessBy(now + kForEverything);
  EndWaitsBy(now + kForHandlers);

  EndQuietlyAtAbort();
  close(spare_descriptor);
  const auto video = RunnableObjectManagerHolder::Instance()->video_;
  const auto strip = RunnableObjectManagerHolder::Instance()->strip_;
  const auto fpga = DeviceManagerHolder::Instance()->fpga_logic_;

  // The FPGA first, so that no further frames are produced. Nothing before it can block.
  std::optional<LogSilence> silence(std::in_place);
  CloseRegistersToOthers();
  if (fpga != nullptr) fpga->IntSignalOper();
  if (!ThisThreadIsLogging()) silence.reset();

  // Both first, so that one's handlers can finish while we wait for the other's.
  video->StopDelivering();
  strip->StopDelivering();
  video->Cancel();
  strip->Cancel();
  video->ReleaseResource();
  strip->ReleaseResource();
  exit(0);
}

void InstallSystemSignalHandle() {
  owner = getpid();
  LoadTimeZone();
  spare_descriptor = OpenDevice("/dev/null", O_RDONLY);
  struct sigaction action {};
  action.sa_handler = SystemSignalHandle;
  sigaddset(&action.sa_mask, SIGQUIT);
  sigaction(SIGINT, &action, nullptr);
}

}  // namespace VeltranoSDK
