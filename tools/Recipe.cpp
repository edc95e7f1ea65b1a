#include "Recipe.h"

#include <fmt/format.h>

#include "Failure.h"
#include "Gain.h"

namespace tool {
namespace {

constexpr std::string_view kPulses = "pulses";

bool IsFor(const Recipe& recipe, const Model& model) {
  return recipe.model.empty() || recipe.model == model.code() ||
         recipe.model == model.family().prefix;
}

}  // namespace

Recipe Defaults() {
  Recipe recipe;
  recipe.exposures = {320};
  recipe.power = 50;
  recipe.laser = "on";
  recipe.trigger = setting::kTriggers[0];
  return recipe;
}

Recipe Over(Recipe first, const Recipe& second) {
  const bool same_unit =
      !first.trigger || UnitOf(setting::kSpacing, first) == UnitOf(setting::kSpacing, second);
  if (first.model.empty()) first.model = second.model;
  ForEachSetting([&](const Setting& setting, auto member) {
    if (setting.key == setting::kSpacing.key && !same_unit) return;
    if (!(first.*member)) first.*member = second.*member;
  });
  return first;
}

Recipe WithDefaults(const Recipe& recipe, const Model& model, bool images) {
  constexpr unsigned kUsualPulses = 10;
  constexpr unsigned kPixelsPerMicrosecond = 16;  // that become PNG files, with time to spare
  Recipe full = Over(recipe, Defaults());
  if (!full.region) full.region = UsualRegion(model);
  if (full.spacing) return full;
  const products::ImageSensor& sensor = model.family().sensor;
  if (UnitOf(setting::kSpacing, full) == kPulses) {
    full.spacing = kUsualPulses;
  } else {
    full.spacing = images ? sensor.width * model.product().Height() / kPixelsPerMicrosecond
                          : sensor.trigger_spacing;
  }
  return full;
}

std::string_view UnitOf(const Setting& setting, const Recipe& recipe) {
  const bool pulses = setting.key == setting::kSpacing.key && recipe.trigger == "encoder";
  return pulses ? kPulses : setting.unit;
}

void Require(const Recipe& recipe, const Model& model) {
  if (!IsFor(recipe, model)) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("made for a {}{}, not for a {}", recipe.model,
                              Model(recipe.model).known() ? "" : "..", model.code()),
                  "give --model what it was made for, or make one for this model with \"tessaline "
                  "recipe save\"");
  }
  if (recipe.region) Require(*recipe.region, model);
  if (recipe.gain) RequireGain(*recipe.gain, model);
}

void RequireItself(const Recipe& recipe) {
  bool made = false;
  bool fits = false;
  for (const std::string_view code : ModelCodes()) {
    const Model model(code);
    if (!IsFor(recipe, model)) continue;
    made = true;
    try {
      Require(recipe, model);
      fits = true;
    } catch (const Failure&) {
      if (!recipe.model.empty()) throw;
    }
  }
  if (!made) Model(recipe.model).Require();
  if (fits) return;
  std::vector<std::string> asked;
  if (recipe.gain) asked.push_back(fmt::format("a gain of {}", *recipe.gain));
  if (recipe.region) asked.push_back("a region of " + recipe.region->AsText());
  throw Failure(ExitCode::kUsage, fmt::format("no model has {}", fmt::join(asked, " and ")),
                "--model CODE shows the limits of one");
}

}  // namespace tool
