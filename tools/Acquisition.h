#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Device.h"
#include "Region.h"
#include "Step.h"

namespace tool {

// How to take frames: the options of the sub-commands that do.
class Acquisition {
 public:
  void Describe(CLI::App& app);

  // Throws a Failure if the model cannot do what the options ask.
  void Require(const Model& model) const;
  // What is read of the sensor.
  Region RegionOf(const Model& model) const;

  // Sets up a started device for images or strips. The steps refer to this object.
  std::vector<Step> Settings(const Model& model, bool images) const;

  // For --dry-run: shows what it would call, and that it would write `file`, unless empty.
  void Rehearse(const Session& session, const std::string& title, bool images,
                const std::string& file = {}) const;

  bool laser() const { return laser_ == "on"; }

 private:
  unsigned Spacing(const Model& model, bool images) const;

  unsigned exposure_ = 320;  // microseconds
  double power_ = 50;        // percent
  unsigned spacing_ = 0;     // microseconds, or encoder pulses; 0: the model's
  std::optional<unsigned> gain_;
  std::string trigger_ = "timer";
  std::string laser_ = "on";
  std::vector<unsigned> region_;
};

}  // namespace tool
