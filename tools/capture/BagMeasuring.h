#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Measuring.h"
#include "Region.h"
#include "Session.h"
#include "record/DeviceNotes.h"

namespace tool {

// How the points of a recording become positions.
struct BagMeasuring {
  Measuring measuring;
  Region region;
};

// The options that complete what a recording says of itself, and the choice.
class BagMeasuringOptions {
 public:
  void Describe(CLI::App& app);

  // The model: what --model says, else the recording, else TESSALINE_MODEL; none if nobody says it.
  // Calibration and region: what the options say, else the recording; without a region that of a
  // start. Throws Failure if what they say cannot be, or does not suit the model.
  std::optional<BagMeasuring> Choose(const Session& session, const DeviceNotes& device) const;

  double counts_per_mm() const { return counts_per_mm_; }

 private:
  Region RegionOf(const DeviceNotes& device, const Model& model) const;
  void Calibrate(Measuring& measuring, const DeviceNotes& device) const;

  std::string calibration_;
  double counts_per_mm_ = 0;
  std::vector<unsigned> roi_;
};

}  // namespace tool
