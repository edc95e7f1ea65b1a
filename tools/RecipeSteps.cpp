// The calls of the device library that make a recipe's settings.
#include <fmt/format.h>

#include <algorithm>

#include "Recipe.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

// The library's number for a word.
unsigned NumberOf(const Setting& setting, std::string_view word) {
  const auto& words = setting.words;
  return static_cast<unsigned>(std::find(words.begin(), words.end(), word) - words.begin());
}

// Microseconds from trigger to exposure; 0 switches it off.
bool SetDelay(unsigned delay) {
  return SetTriDelayStandard(0) == 0 && SetTriDelay(delay) == 0 &&
         SetDelayEn(delay == 0 ? 0 : 1) == 0;
}

}  // namespace

std::vector<Step> StepsOf(const Recipe& recipe, const Model& model) {
  std::vector<Step> steps;
  const auto add = [&steps](std::string call, std::string effect, std::function<bool()> run) {
    steps.push_back({std::move(call), std::move(effect), std::move(run)});
  };
  if (const auto& region = recipe.region) {
    add(region->AsCall(), region->AsText(), [region = *region] {
      return SetROI1(region.x, region.y, region.width, region.height) == 0;
    });
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
