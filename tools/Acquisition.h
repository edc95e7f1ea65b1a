#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Device.h"
#include "Step.h"

namespace tool {

// Makes a started device read the whole sensor: some products start with only part of their
// rows. False if it refuses.
bool ReadWholeSensor();

// How to take frames: the options of the sub-commands that do.
class Acquisition {
 public:
  void Describe(CLI::App& app);

  // Sets up a started device for images or strips. The steps refer to this object.
  std::vector<Step> Settings(const Model& model, bool images) const;

  // For --dry-run: shows what it would call, and that it would write `file`, unless empty.
  void Rehearse(const Session& session, const std::string& title, bool images,
                const std::string& file = {}) const;

  bool laser() const { return laser_ == "on"; }

 private:
  unsigned Spacing(const Model& model) const;

  unsigned exposure_ = 320;  // microseconds
  double power_ = 50;        // percent
  unsigned spacing_ = 0;     // microseconds, or encoder pulses; 0: the model's
  unsigned gain_ = 0;
  std::string trigger_ = "timer";
  std::string laser_ = "on";
  std::vector<unsigned> region_;
};

}  // namespace tool
