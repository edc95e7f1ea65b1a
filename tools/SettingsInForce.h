#pragma once

#include "Recipe.h"

namespace tool {

// The settings of a sensor that this process has started, for changes while it takes frames.
class SettingsInForce {
 public:
  explicit SettingsInForce(const Model& model) : model_(model) {}

  // The sensor has just been started: notes what that left, makes these settings, and the defaults
  // of the others.
  void Start(const Recipe& recipe, bool images);
  // Makes these settings; the others stay. Throws a Failure with the limits before anything is
  // touched, or, when the device refuses one, after the settings from before have been made again.
  void Change(const Recipe& recipe, bool images);
  // Another mode has another spacing.
  void SwitchMode(bool images);

  // All of them, but for the laser, which has a switch of its own.
  Recipe All(bool images) const;

 private:
  const Model& model_;
  Recipe asked_;     // by users, without defaults
  Recipe at_start_;  // what a start leaves, as far as registers tell
};

}  // namespace tool
