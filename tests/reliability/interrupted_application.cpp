// The program that sigint_storm interrupts: starts a product, takes one image and one
// strip buffer, reports, and is busy in one way until SIGINT ends it.
//
//   interrupted_application MODEL ACTIVITY
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <mutex>
#include <string_view>
#include <thread>

#include "reliability/StormMarks.h"
#include "support/Waiting.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace {

using std::chrono::milliseconds;
using tessaline_test::Eventually;
using tessaline_test::ReallyWait;
namespace mark = tessaline_test::mark;

// One capture thread as its handler sees it.
struct Capture {
  std::atomic<bool> known{false};
  std::atomic<bool> cancelled{false};
  pthread_t thread{};
};
Capture images;
Capture strips;

// The IMX252 refuses regions at the very edge. The e2v Flash 4K keeps their offsets for the
// whole image of drive mode 0, for which there is then no room.
unsigned region_corner = 64;

std::atomic<bool> busy_handlers{false};
std::atomic<bool> locking_handlers{false};
// Never destroyed: a handler may wait for it to the very end.
std::mutex& of_application = *new std::mutex;

void RegisterTraffic(unsigned i) {
  SetTriSpacing(4000 + i % 100);
  SetOutWidth(i % 2, i);
  GetTriSpacing();
  GetEncoderCounter();
  SetRisThresholdValue(20 + i % 40);
}

// Some milliseconds, never the same.
void StayInHandler() {
  static thread_local unsigned visits = 0;
  ++visits;
  usleep(mark::kHandlerBegins);
  RegisterTraffic(visits);
  ReallyWait(milliseconds(visits * 7 % 20));
  usleep(mark::kHandlerEnds);
}

// What the interrupted thread holds never becomes free again.
void WantTheLock() {
  usleep(mark::kHandlerBegins);
  { const std::lock_guard lock(of_application); }
  usleep(mark::kHandlerEnds);
}

void Handle(Capture& capture) {
  if (capture.cancelled) usleep(mark::kHandlerAfterCancel);
  if (!capture.known) {
    capture.thread = pthread_self();
    capture.known = true;
  }
  if (busy_handlers) StayInHandler();
  if (locking_handlers) WantTheLock();
}

void OnImage(unsigned, unsigned, void*) { Handle(images); }
void OnStrips(unsigned, unsigned, void*) { Handle(strips); }
void OnTrigger(unsigned) { GetEncoderCounter(); }
void OnArrived() { GetTriSpacing(); }

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "interrupted_application: %s\n", what);
  _exit(EXIT_FAILURE);
}

void Handler(int event, auto* handler) {
  RegisterEventHandler(event, reinterpret_cast<tessaline_event_handler>(handler));
}

void TakeOne(unsigned mode, const Capture& capture) {
  SetCollectMode(mode);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  if (!Eventually([&] { return capture.known.load(); })) Fail("no frame");
  SetGlobalControl(0);
}

void StartUp(const char* model) {
  if (std::string_view(model).starts_with("K40")) region_corner = 0;
  GetLibVersion(model);
  Handler(TESSALINE_EVENT_IMAGE, OnImage);
  Handler(TESSALINE_EVENT_STRIP, OnStrips);
  Handler(TESSALINE_EVENT_EXTERNAL_TRIGGER, OnTrigger);
  Handler(TESSALINE_EVENT_DA_ARRIVED, OnArrived);
  if (RegisterHardwareInit() != 0) Fail("no start-up");
  OpenLaser();
  SetTriMode(2);
  TakeOne(1, images);
  TakeOne(0, strips);
  SetTriMode(0);
}

// --- The activities; none returns

void BeIdle() {
  for (;;) pause();
}

void Stream(unsigned mode) {
  SetCollectMode(mode);
  SetGlobalControl(1);
  BeIdle();
}

void StreamStrips() { Stream(0); }
void StreamImages() { Stream(1); }

void AccessRegisters() {
  const auto traffic = [] {
    for (unsigned i = 0;; ++i) RegisterTraffic(i);
  };
  std::thread(traffic).detach();
  traffic();
}

void StreamToBusyHandlers() {
  busy_handlers = true;
  SetCollectMode(0);
  SetGlobalControl(1);
  for (unsigned mode = 1;; mode ^= 1) {
    ReallyWait(milliseconds(25));
    SetCollectMode(mode);
  }
}

// The lock is free now and then, so that the handlers are called again and again; most
// of the time the main thread has it, and accesses registers with it.
void HoldTheLock() {
  locking_handlers = true;
  SetCollectMode(0);
  SetGlobalControl(1);
  for (unsigned i = 0;; ++i) {
    {
      const std::lock_guard lock(of_application);
      RegisterTraffic(i);
      ReallyWait(milliseconds(20));
    }
    SetCollectMode(i % 2);
    ReallyWait(milliseconds(2));
  }
}

void SwitchNotifiers() {
  for (unsigned level = 1;; level ^= 1) {
    SetExtTriggerState(1);
    SetDADelayState(1);
    tessaline_board_external_trigger(static_cast<int>(level));
    tessaline_board_da_arrived();
    SetExtTriggerState(0);
    SetDADelayState(0);
  }
}

constexpr void (*kSettings[])(unsigned) = {
    [](unsigned i) { SetCollectMode(i % 2); },
    [](unsigned i) { SetLaserPower(static_cast<float>(30 + i % 40)); },
    [](unsigned i) { LedControl(i % 8); },
    [](unsigned i) { SetCmosGain(i % 3); },
    [](unsigned i) { DAWrite(i % 4096); },
    [](unsigned) { GetCpuTemp(); },
    [](unsigned i) { SetExposureTime(1, 100 + i % 100); },
    [](unsigned i) { SetROI1(region_corner, region_corner, 64, i % 2 == 0 ? 640 : 800); },
    [](unsigned) { SetDriveMode(0); },
    [](unsigned) { SetGlobalControl(0); },
    [](unsigned) { ResetFrameID(); },
    [](unsigned) { Handler(TESSALINE_EVENT_EXTERNAL_TRIGGER, OnTrigger); },  // it is off
    [](unsigned) { SetGlobalControl(1); },
    [](unsigned i) { QV4l2Buf(i % 16); },
    [](unsigned i) {
      unsigned char settings[16] = {static_cast<unsigned char>(i)};
      ConfigSave(settings, sizeof settings);
    },
};

// All of them take a second. Every process begins with another one, so that no moment is
// out of reach.
void ChangeSettings() {
  SetCollectMode(0);
  SetGlobalControl(1);
  for (auto i = static_cast<unsigned>(getpid());; ++i) kSettings[i % std::size(kSettings)](i);
}

struct Activity {
  std::string_view name;
  void (*run)();
};
constexpr Activity kActivities[] = {
    {"idle", BeIdle},
    {"strips", StreamStrips},
    {"images", StreamImages},
    {"registers", AccessRegisters},
    {"handlers", StreamToBusyHandlers},
    {mark::kLocks, HoldTheLock},
    {"notifiers", SwitchNotifiers},
    {mark::kSettings, ChangeSettings},
};

void ReportReady() {
  if (write(tessaline_test::kReadyDescriptor, "r", 1) != 1) Fail("nobody listens");
  close(tessaline_test::kReadyDescriptor);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) Fail("MODEL ACTIVITY");
  for (const auto& [name, run] : kActivities) {
    if (name != argv[2]) continue;
    StartUp(argv[1]);
    tessaline_board_set_sleep_factor(1);
    tessaline_board_transcript_clear();
    ReportReady();
    run();
  }
  Fail("no such activity");
}

// Stands before the C library's for the whole program: shows whose turn it is. The
// thread's handler must not be called from here on.
extern "C" int pthread_cancel(pthread_t thread) {
  static const auto real = reinterpret_cast<int (*)(pthread_t)>(dlsym(RTLD_NEXT, "pthread_cancel"));
  const auto note = [thread](Capture& capture, unsigned microseconds) {
    if (!capture.known || !pthread_equal(capture.thread, thread)) return;
    capture.cancelled = true;
    usleep(microseconds);
  };
  note(images, mark::kImagesCancelled);
  note(strips, mark::kStripsCancelled);
  return real(thread);
}
