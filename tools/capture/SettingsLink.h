#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "Json.h"

namespace tool {

// Asks the process that takes the frames for other settings, which nobody else can make.
class SettingsLink {
 public:
  // The environment tells the other process which of its descriptors is its end.
  static constexpr const char* kVariable = "TESSALINE_SETTINGS_LINK";

  // Throws a Failure if there is no descriptor left.
  SettingsLink();
  ~SettingsLink();
  SettingsLink(const SettingsLink&) = delete;
  SettingsLink& operator=(const SettingsLink&) = delete;

  // What the variable has to say. The other end is inherited until Started().
  std::string Variable() const { return std::to_string(theirs_); }
  void Started();

  // The answer. Throws a Failure as the other process does, or if it has ended or does not answer.
  Json Ask(const Json& request) const;

  // --- The other process.

  // The descriptor from the environment; -1: there is none.
  static int Inherited();
  // Answers one request, if there is one within a time. A Failure of `answer` is its answer.
  static void Serve(int descriptor, int milliseconds,
                    const std::function<Json(const Json&)>& answer);

 private:
  int ours_ = -1;
  int theirs_ = -1;
};

}  // namespace tool
