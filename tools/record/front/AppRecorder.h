#pragma once

#include <unistd.h>

#include <array>
#include <atomic>
#include <string>

#include "Models.h"
#include "record/BagWriter.h"
#include "record/WriteQueue.h"
#include "tessaline/log.h"
#include "tessaline/startup.h"

namespace tool {

// Records what the library hands to an application. There is one, because handlers have no argument
// to tell two apart. Its calls come from the application's and the library's threads.
class AppRecorder {
 public:
  // What to record, as "tessaline record" puts it into the environment.
  static constexpr const char* kFileVariable = "TESSALINE_RECORD";

  // None if the environment does not ask for one, or the file cannot be created: then it says so on
  // standard error, and the application runs on.
  static AppRecorder* FromEnvironment();

  // Writes what waits and closes the file. Handlers may still be called, but nothing is recorded.
  void Finish();

  // Before the library is told the same.
  void OnModel(const char* model);
  // Returns what to register in the place of the application's handler.
  tessaline_event_handler Wrap(int type, tessaline_event_handler handler);
  void OnStarted();

 private:
  explicit AppRecorder(const std::string& path);

  static const std::array<tessaline_event_handler, 4> kOurs;
  static void OnStrips(unsigned strips, unsigned bytes, void* data);
  static void OnImage(unsigned width, unsigned height, void* pixels);
  static void OnTrigger(unsigned level);
  static void OnDaArrived();
  static void OnLogLine(log_Event* event);
  void TellLosses();

  const pid_t owner_ = getpid();
  BagWriter writer_;
  WriteQueue queue_;
  std::string model_;
  std::atomic<std::uint8_t> point_bytes_{8};
  std::array<std::atomic<tessaline_event_handler>, 4> handlers_{};
};

}  // namespace tool
