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
// Given up when the process ends: without a descriptor the FPGA cannot be stopped.
std::atomic<int> spare_descriptor{-1};
std::atomic_flag shutting_down = ATOMIC_FLAG_INIT;

// What the interrupted thread holds, a handler of the application may wait for, and exit()
// too. All waits for handlers end so early that an ordinary end takes less than the whole
// time, and then the process is ended without it.
constexpr std::chrono::milliseconds kForHandlers{1300};
constexpr std::chrono::milliseconds kForEverything{2000};

// A forked child of the application: the device is its parent's.
void EndAsAnyProcess() {
  signal(SIGINT, SIG_DFL);
  kill(getpid(), SIGINT);  // delivered when the handler returns
}

// exit() runs on the interrupted thread. A destructor that joins that very thread throws,
// which would end the process by SIGABRT.
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

  // The FPGA first, so that no further frames are produced. Nothing that can block comes
  // before it.
  std::optional<LogSilence> silence(std::in_place);
  CloseRegistersToOthers();
  if (fpga != nullptr) fpga->IntSignalOper();
  if (!ThisThreadIsLogging()) silence.reset();

  // Both, so that the one's handlers end while the other's are waited for.
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
