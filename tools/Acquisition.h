#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Device.h"
#include "Recipe.h"

namespace tool {

// How to take frames: the options of the sub-commands that do.
class Acquisition {
 public:
  void Describe(CLI::App& app);

  // Reads the recipe; the options come first. Throws a Failure if the model cannot do what they
  // ask; null stands for any model. Nothing else may be asked before.
  void Settle(const Session& session, const Model* model);
  // Whether the command line asks for any of it.
  bool AskedFor() const;
  // What was asked for; no defaults.
  const Recipe& recipe() const { return recipe_; }

  // What is read of the sensor.
  Region RegionOf(const Session& session) const;
  bool laser() const { return recipe_.laser != "off"; }

  // Sets up a started device for images or strips.
  std::vector<Step> Settings(const Model& model, bool images) const;
  // The part of these that is about frames and counters, not settings.
  static std::vector<Step> Collect(bool images);

  // Makes them on the sensor that was started; where a daemon has it, only what was asked for, and
  // throws a Failure unless it takes such frames now.
  void SetUp(const Session& session, bool images) const;

  // For --dry-run: shows what it would call, `before` first, and that it would write `file`, unless
  // empty.
  void Rehearse(const Session& session, const std::string& title, bool images,
                const std::vector<std::string>& before, const std::string& file = {}) const;

 private:
  std::string path_;
  Recipe options_;
  Recipe recipe_;
};

}  // namespace tool
