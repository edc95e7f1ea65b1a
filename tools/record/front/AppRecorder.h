#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "record/front/RecordTap.h"
#include "record/front/RegisterWatch.h"
#include "tessaline/startup.h"

namespace tool {

// Passes on what the library hands to an application to the process that records it. There is one,
// because handlers have no argument to tell two apart. Its calls come from the application's and
// the library's threads, and from signal handlers.
class AppRecorder {
 public:
  // None if the environment does not ask for one, or if this process cannot be recorded: then it
  // says so on standard error, and the application runs on.
  static AppRecorder* FromEnvironment();

  // The library has been told the model, and has answered with its version.
  void OnModel(const char* model, int library_version);
  // Returns what to register in the place of the application's handler.
  tessaline_event_handler Wrap(int type, tessaline_event_handler handler);
  void OnStarted();

  RegisterWatch& registers() { return registers_; }

 private:
  AppRecorder(ring::RecordRing ring, std::string_view what);

  static const std::array<tessaline_event_handler, 4> kOurs;
  static void OnStrips(unsigned strips, unsigned bytes, void* data);
  static void OnImage(unsigned width, unsigned height, void* pixels);
  static void OnTrigger(unsigned level);
  static void OnDaArrived();
  static void OnLogLine(log_Event* event);
  static void OnRegister(std::uint64_t address, std::uint32_t value);
  void ReadAllRegisters();

  RecordTap tap_;
  RegisterWatch registers_;
  std::string model_;
  bool listens_to_log_ = false;
  std::array<std::atomic<tessaline_event_handler>, 4> handlers_{};
};

}  // namespace tool
