#include "capture/BagMeasuring.h"

#include <span>

#include "Command.h"
#include "Failure.h"
#include "Geometry.h"
#include "RecipeText.h"
#include "calibrate/CalibrationFile.h"

namespace tool {
namespace {

constexpr const char* kNone = "none";

}  // namespace

void BagMeasuringOptions::Describe(CLI::App& app) {
  app.add_option("--calibration", calibration_,
                 "Calibration of the head: a file of \"tessaline calibrate\", or none for columns "
                 "and rows (default: the recording's, if it has one)")
      ->type_name("FILE");
  app.add_option("--counts-per-mm", counts_per_mm_,
                 "Encoder counts per millimetre, for ply, png and bag")
      ->check(NumberIn(1e-6, 1e9));
  app.add_option("--roi", roi_,
                 "Region of interest (default: that of the recording's recipe, or of a start)")
      ->expected(4)
      ->type_name("X Y WIDTH HEIGHT");
}

std::optional<BagMeasuring> BagMeasuringOptions::Choose(const Session& session,
                                                        const DeviceNotes& device) const {
  const std::string recorded = device.Text("model").value_or("");
  const bool asked = !session.options().model.empty();
  if (!asked && !Model(recorded).known() && !session.has_model()) return std::nullopt;
  const Model model = asked || !Model(recorded).known() ? session.model() : Model(recorded);
  BagMeasuring choice;
  choice.region = RegionOf(device, model);
  choice.measuring.geometry = GeometryOf(model, choice.region);
  choice.measuring.counts_per_mm = counts_per_mm_;
  Calibrate(choice.measuring, device);
  if (choice.measuring.calibration) {
    RequireSensor(*choice.measuring.calibration, model, choice.measuring.source);
  }
  return choice;
}

Region BagMeasuringOptions::RegionOf(const DeviceNotes& device, const Model& model) const {
  Region region = StartRegion(model);
  if (!roi_.empty()) {
    region = {roi_[0], roi_[1], roi_[2], roi_[3]};
  } else if (const auto recipe = device.Object("recipe")) {
    const Recipe settings = ParseRecipe(recipe->dump(), "the recording's recipe", model);
    if (settings.region) region = *settings.region;
  }
  Require(region, model);
  return region;
}

void BagMeasuringOptions::Calibrate(Measuring& measuring, const DeviceNotes& device) const {
  const auto use = [&measuring](const calibrate::StoredCalibration& stored, const char* source) {
    measuring.calibration = stored.numbers;
    measuring.source = source;
  };
  if (calibration_ == kNone) return;
  if (!calibration_.empty()) {
    return use(calibrate::ReadCalibration(calibration_), calibration_.c_str());
  }
  if (const auto json = device.Object("calibration")) {
    return use(calibrate::ParseCalibration(json->dump(), "the recording's calibration"),
               "the recording");
  }
  const std::vector<std::uint8_t> eeprom = device.Eeprom();
  if (eeprom.empty()) return;
  const calibrate::FoundBlock found =
      calibrate::FromBlock(std::span(eeprom).subspan(calibrate::kBlockAt, calibrate::kBlockBytes));
  if (found.state == calibrate::FoundBlock::State::kSound) {
    use(found.stored, "the EEPROM in the recording");
  }
}

}  // namespace tool
