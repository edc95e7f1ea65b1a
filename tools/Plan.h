#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Recipe.h"
#include "Session.h"
#include "Step.h"

namespace tool {

// What a sub-command is about to do to the device: a list to run and show, or only to show.
class Plan {
 public:
  Plan(const Session& session, std::string title) : session_(session), title_(std::move(title)) {}

  // `live`: does the same where a daemon has the sensor.
  void Add(std::string call, std::string effect, std::function<bool()> run,
           std::function<void(const live::LiveSensor&)> live);
  // The calls that make a recipe's settings. A daemon that has the sensor gets the recipe.
  void Add(const Recipe& recipe, std::vector<Step> calls);

  // Runs the steps on a started device; throws a Failure at the first that is refused. With
  // --dry-run they are only shown, and nothing is opened.
  void CarryOut();

 private:
  void Tell(bool done) const;

  const Session& session_;
  std::string title_;
  std::vector<Step> steps_;
  std::vector<std::function<void(const live::LiveSensor&)>> live_;
};

}  // namespace tool
