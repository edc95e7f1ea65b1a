// The program that sigint_storm interrupts. It starts a product, takes one image and one strip
// buffer, reports, and then performs one activity until SIGINT ends it.
//
//   interrupted_application MODEL ACTIVITY
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string_view>
#include <thread>

#include "reliability/StormEnd.h"
#include "reliability/StormMarks.h"
#include "reliability/StormPrograms.h"
#include "reliability/StormTraffic.h"
#include "support/CalledByLibrary.h"
#include "support/Waiting.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace {

using namespace storm;  // NOLINT(google-build-using-namespace): this is its main program
using std::chrono::milliseconds;
using tessaline_test::Eventually;
using tessaline_test::ReallyWait;
namespace mark = tessaline_test::mark;

// One capture thread. Its wake-up tells it to end.
struct Capture {
  const char* asked_mark;
  std::atomic<int> wake_up{-1};
  std::atomic<bool> seen{false};
  std::atomic<bool> asked{false};
};
Capture images{mark::kImagesAsked};
Capture strips{mark::kStripsAsked};

std::atomic<bool> busy_handlers{false};
std::atomic<bool> locking_handlers{false};
// Never destroyed, because a handler may wait for it until the process ends.
std::mutex& of_application = *new std::mutex;

// The board does not have this file, but its transcript records the attempt.
void Leave(const char* mark) { open(mark, O_RDONLY | O_CLOEXEC); }

// Waits some milliseconds, never the same time.
void StayInHandler() {
  static thread_local unsigned visits = 0;
  ++visits;
  Leave(mark::kHandlerBegins);
  RegisterTraffic(visits);
  ReallyWait(milliseconds(visits * 7 % 20));
  Leave(mark::kHandlerEnds);
}

// A lock that the interrupted thread holds never becomes free again.
void WantTheLock() {
  Leave(mark::kHandlerBegins);
  { const std::lock_guard lock(of_application); }
  Leave(mark::kHandlerEnds);
}

void Handle(Capture& capture) {
  if (capture.asked) Leave(mark::kHandlerTooLate);
  capture.seen = true;
  if (busy_handlers) StayInHandler();
  if (locking_handlers) WantTheLock();
}

void OnImage(unsigned, unsigned, void*) { Handle(images); }
void OnStrips(unsigned, unsigned, void*) { Handle(strips); }
void OnArrived() { GetTriSpacing(); }

void Handler(int event, auto* handler) {
  RegisterEventHandler(event, reinterpret_cast<tessaline_event_handler>(handler));
}

void TakeOne(unsigned mode, const Capture& capture) {
  SetCollectMode(mode);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  if (!Eventually([&] { return capture.seen.load(); })) Fail("no frame");
  SetGlobalControl(0);
}

void StartUp(const char* model) {
  ChooseRegion(model);
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

// The lock is free at times, so that the handlers are called repeatedly. Most of the time the main
// thread holds it while it accesses registers.
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

struct Activity {
  std::string_view name;
  void (*work)();
  pid_t (*prepare)() = [] { return pid_t{0}; };
};
constexpr Activity kActivities[] = {
    {"idle", BeIdle},
    {"strips", StreamStrips},
    {"images", StreamImages},
    {"registers", AccessRegisters},
    {"handlers", StreamToBusyHandlers},
    {"locks", HoldTheLock},
    {"notifiers", SwitchNotifiers},
    {"settings", ChangeSettings},
    {"heap", UseTheHeap, ShareTheHeap},
    {"timer", ChangeSettings, StartTheTimer},
    {"children", StartChildren, ExpectChildren},
    {"twice", WorkInTwoThreads, StartTheOtherThread},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) Fail("MODEL ACTIVITY");
  PrepareForTheEnd();
  for (const auto& [name, work, prepare] : kActivities) {
    if (name != argv[2]) continue;
    StartUp(argv[1]);
    tessaline_board_set_sleep_factor(1);
    const pid_t second_thread = prepare();
    tessaline_board_transcript_clear();
    ReportAtWork(second_thread);
    work();
  }
  Fail("no such activity");
}

// These replace the C library's functions for the whole program and identify the threads. The
// library creates the image thread's wake-up first, then the strip thread's. The virtual board
// creates others. A thread's handler must not be called after the thread was told to end.
extern "C" int eventfd(unsigned count, int flags)
#if defined(__GLIBC__)
    __THROW
#endif
{
  static const auto real = reinterpret_cast<int (*)(unsigned, int)>(dlsym(RTLD_NEXT, "eventfd"));
  const int fd = real(count, flags);
  if (!tessaline_test::CalledByLibrary(__builtin_return_address(0))) return fd;
  for (Capture* capture : {&images, &strips}) {
    int none = -1;
    if (capture->wake_up.compare_exchange_strong(none, fd)) break;
  }
  return fd;
}

extern "C" int eventfd_write(int fd, eventfd_t value) {
  static const auto real =
      reinterpret_cast<int (*)(int, eventfd_t)>(dlsym(RTLD_NEXT, "eventfd_write"));
  for (Capture* capture : {&images, &strips}) {
    if (fd != capture->wake_up) continue;
    capture->asked = true;
    Leave(capture->asked_mark);
  }
  return real(fd, value);
}
