// Loaded in front of the library: its functions stand before those that an application and the
// library would call, and tell the recorder what happens.

#include <sys/mman.h>

#include <atomic>

#include "record/front/AppRecorder.h"
#include "record/front/Library.h"
#include "tessaline/startup.h"

namespace {

// Null until the first call of the library: a shell or another program in between loads this, too.
std::atomic<tool::AppRecorder*> recording{nullptr};

tool::AppRecorder* Recorder() {
  static tool::AppRecorder* const recorder = tool::AppRecorder::FromEnvironment();
  recording = recorder;
  return recorder;
}

void* Map(void* hint, size_t length, int protection, int flags, int fd, off_t offset) {
  static auto* const next = reinterpret_cast<decltype(mmap)*>(dlsym(RTLD_NEXT, "mmap"));
  void* const page = next(hint, length, protection, flags, fd, offset);
  auto* const recorder = recording.load(std::memory_order_acquire);
  if (recorder != nullptr) recorder->registers().Mapped(page, length, flags, offset);
  return page;
}

}  // namespace

int GetLibVersion(const char* model) {
  static auto* const next = tool::LibraryFunction<decltype(GetLibVersion)>("GetLibVersion");
  const int version = next(model);
  if (auto* const recorder = Recorder()) recorder->OnModel(model, version);
  return version;
}

void RegisterEventHandler(int type, tessaline_event_handler callback) {
  static auto* const next =
      tool::LibraryFunction<decltype(RegisterEventHandler)>("RegisterEventHandler");
  auto* const recorder = Recorder();
  next(type, recorder == nullptr ? callback : recorder->Wrap(type, callback));
}

int RegisterHardwareInit() {
  static auto* const next =
      tool::LibraryFunction<decltype(RegisterHardwareInit)>("RegisterHardwareInit");
  const int result = next();
  auto* const recorder = Recorder();
  if (recorder != nullptr && result == 0) recorder->OnStarted();
  return result;
}

#pragma GCC visibility push(default)
extern "C" {

void* mmap(void* hint, size_t length, int protection, int flags, int fd, off_t offset) noexcept {
  return Map(hint, length, protection, flags, fd, offset);
}

void* mmap64(void* hint, size_t length, int protection, int flags, int fd,
             off64_t offset) noexcept {
  return Map(hint, length, protection, flags, fd, offset);
}

int munmap(void* page, size_t length) noexcept {
  static auto* const next = reinterpret_cast<decltype(munmap)*>(dlsym(RTLD_NEXT, "munmap"));
  auto* const recorder = recording.load(std::memory_order_acquire);
  if (recorder != nullptr) recorder->registers().Unmapping(page);
  return next(page, length);
}

}  // extern "C"
#pragma GCC visibility pop
