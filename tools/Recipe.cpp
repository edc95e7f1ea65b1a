#include "Recipe.h"

#include <fmt/format.h>

#include <algorithm>

#include "Failure.h"
#include "Gain.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr std::string_view kPulses = "pulses";

// The library's number for a word.
unsigned NumberOf(const Setting& setting, std::string_view word) {
  const auto& words = setting.words;
  return static_cast<unsigned>(std::find(words.begin(), words.end(), word) - words.begin());
}

bool IsFor(const Recipe& recipe, const Model& model) {
  return recipe.model.empty() || recipe.model == model.code() ||
         recipe.model == model.family().prefix;
}

// Microseconds from trigger to exposure; 0 switches it off.
bool SetDelay(unsigned delay) {
  return SetTriDelayStandard(0) == 0 && SetTriDelay(delay) == 0 &&
         SetDelayEn(delay == 0 ? 0 : 1) == 0;
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

std::vector<Step> StepsOf(const Recipe& recipe, const Model& model) {
  std::vector<Step> steps;
  const auto add = [&steps](std::string call, std::string effect, std::function<bool()> run) {
    steps.push_back({std::move(call), std::move(effect), std::move(run)});
  };
  if (const auto& region = recipe.region) {
    add(region->AsCall(), region->AsText(), [region = *region] { return region.Set(); });
  }
  if (recipe.exposures) {
    const auto count = static_cast<unsigned>(recipe.exposures->size());
    add(fmt::format("SetExposureNum({})", count),
        fmt::format("{} exposure{} per cycle", count, count == 1 ? "" : "s"),
        [count] { return SetExposureNum(count) == 0; });
    for (unsigned i = 1; i <= count; ++i) {
      const unsigned time = (*recipe.exposures)[i - 1];
      add(fmt::format("SetExposureTime({}, {})", i, time),
          fmt::format("exposure {}: {} us", i, time),
          [i, time] { return SetExposureTime(i, time) == 0; });
    }
  }
  if (recipe.gain) {
    add(fmt::format("SetCmosGain({})", *recipe.gain), fmt::format("analogue gain {}", *recipe.gain),
        [gain = *recipe.gain] { return SetCmosGain(gain) == 1; });
  }
  if (recipe.power) {
    add(fmt::format("SetLaserPower({})", *recipe.power),
        fmt::format("laser power {} %, by the {}", *recipe.power, model.family().laser_power_chip),
        [power = *recipe.power] { return SetLaserPower(static_cast<float>(power)) == 0; });
  }
  const auto set = [&add](std::string_view name, auto function, unsigned value,
                          std::string effect) {
    add(fmt::format("{}({})", name, value), std::move(effect),
        [=] { return function(value) == 0; });
  };
  const auto choose = [&set](std::string_view name, auto function, const Setting& setting,
                             const std::optional<std::string>& word, std::string_view what) {
    if (word) set(name, function, NumberOf(setting, *word), fmt::format("{} {}", what, *word));
  };
  choose("SetTriMode", SetTriMode, setting::kTrigger, recipe.trigger, "trigger mode");
  if (recipe.spacing) {
    set("SetTriSpacing", SetTriSpacing, *recipe.spacing,
        fmt::format("a trigger every {} {}", *recipe.spacing, UnitOf(setting::kSpacing, recipe)));
  }
  if (recipe.delay) {
    add(fmt::format("SetTriDelay({})", *recipe.delay),
        fmt::format("exposure {} us after the trigger", *recipe.delay),
        [delay = *recipe.delay] { return SetDelay(delay); });
  }
  if (recipe.filter) {
    set("SetExternSignalFilter", SetExternSignalFilter, *recipe.filter,
        fmt::format("external pulses shorter than {} us are ignored", *recipe.filter));
  }
  choose("SetDoorControlEn", SetDoorControlEn, setting::kDoor, recipe.door, "door control");
  choose("LedControl", LedControl, setting::kLed, recipe.led, "status light");
  return steps;
}

std::vector<Step> StepsAfterStart(const Recipe& recipe, const Model& model, bool images) {
  Recipe full = WithDefaults(recipe, model, images);
  if (full.region == StartRegion(model)) full.region.reset();
  if (full.laser == "off") full.power.reset();
  return StepsOf(full, model);
}

}  // namespace tool
