// Loaded in front of the library: its functions stand before those that an application would call,
// and tell the recorder what happens.

#include <dlfcn.h>

#include "record/front/AppRecorder.h"
#include "tessaline/startup.h"

namespace {

// Made by the first call of the library, because a shell or another program in between loads this,
// too. None: nothing is recorded.
tool::AppRecorder* Recorder() {
  static tool::AppRecorder* const recorder = tool::AppRecorder::FromEnvironment();
  return recorder;
}

// The library's own function of this name.
template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int GetLibVersion(const char* model) {
  static auto* const next = Next<decltype(GetLibVersion)>("GetLibVersion");
  if (auto* const recorder = Recorder()) recorder->OnModel(model);
  return next(model);
}

void RegisterEventHandler(int type, tessaline_event_handler callback) {
  static auto* const next = Next<decltype(RegisterEventHandler)>("RegisterEventHandler");
  auto* const recorder = Recorder();
  next(type, recorder == nullptr ? callback : recorder->Wrap(type, callback));
}

int RegisterHardwareInit() {
  static auto* const next = Next<decltype(RegisterHardwareInit)>("RegisterHardwareInit");
  const int result = next();
  auto* const recorder = Recorder();
  if (recorder != nullptr && result == 0) recorder->OnStarted();
  return result;
}
