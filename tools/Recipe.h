#pragma once

#include <array>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Models.h"
#include "Region.h"
#include "Step.h"

namespace tool {

// All settings that a user can make. What is absent stays as it is, or has a default.
struct Recipe {
  std::string model;  // a model code, or the first characters of a family's; empty: any

  std::optional<Region> region;
  std::optional<std::vector<unsigned>> exposures;  // microseconds; they take turns
  std::optional<unsigned> gain;                    // in the sensor's own steps
  std::optional<double> power;                     // percent
  std::optional<std::string> laser;
  std::optional<std::string> trigger;
  std::optional<unsigned> spacing;  // microseconds, or encoder pulses: UnitOf()
  std::optional<unsigned> delay;    // microseconds, 0: none
  std::optional<unsigned> filter;   // microseconds
  std::optional<std::string> door;
  std::optional<std::string> led;
};

// What a setting takes, on the command line and in a file.
struct Setting {
  std::string_view key;   // in a file
  std::string_view name;  // for people
  std::string_view type;  // on the command line
  std::string_view unit{};
  double low = 0;
  double high = std::numeric_limits<unsigned>::max();
  std::span<const std::string_view> words{};  // in the order of the library's numbers
};

namespace setting {

inline constexpr std::size_t kMostExposures = 5;
inline constexpr double kMostDelay = 85'899'345;  // microseconds: 32 bits of 20 ns
inline constexpr std::array<std::string_view, 2> kStates{"off", "on"};
inline constexpr std::array<std::string_view, 4> kTriggers{"timer", "encoder", "external",
                                                           "timer-start"};
inline constexpr std::array<std::string_view, 8> kColours{
    "off", "red", "green", "yellow", "blue", "magenta", "cyan", "white"};  // red 1, green 2, blue 4

inline constexpr Setting kRegion{"region", "region", "X Y WIDTH HEIGHT", ""};
inline constexpr Setting kExposure{"exposure_us", "exposure", "MICROSECONDS", "us", 1, 10'000'000};
inline constexpr Setting kGain{"gain", "gain", "STEPS", ""};
inline constexpr Setting kPower{"power_percent", "laser power", "PERCENT", "%", 0, 100};
inline constexpr Setting kLaser{.key = "laser", .name = "laser", .type = "STATE", .words = kStates};
inline constexpr Setting kTrigger{
    .key = "trigger", .name = "trigger", .type = "MODE", .words = kTriggers};
inline constexpr Setting kSpacing{"spacing", "trigger spacing", "SPACING", "us", 1, kMostDelay};
inline constexpr Setting kDelay{"delay_us", "trigger delay", "MICROSECONDS", "us", 0, kMostDelay};
inline constexpr Setting kFilter{"input_filter_us", "input filter", "MICROSECONDS", "us", 0,
                                 kMostDelay};
inline constexpr Setting kDoor{
    .key = "door", .name = "door control", .type = "STATE", .words = kStates};
inline constexpr Setting kLed{
    .key = "led", .name = "status light", .type = "COLOUR", .words = kColours};

}  // namespace setting

// Visits each setting with its place in a recipe.
template <typename Visit>
void ForEachSetting(Visit visit) {
  visit(setting::kRegion, &Recipe::region);
  visit(setting::kExposure, &Recipe::exposures);
  visit(setting::kGain, &Recipe::gain);
  visit(setting::kPower, &Recipe::power);
  visit(setting::kLaser, &Recipe::laser);
  visit(setting::kTrigger, &Recipe::trigger);
  visit(setting::kSpacing, &Recipe::spacing);
  visit(setting::kDelay, &Recipe::delay);
  visit(setting::kFilter, &Recipe::filter);
  visit(setting::kDoor, &Recipe::door);
  visit(setting::kLed, &Recipe::led);
}

// What frames are taken with unless something else is asked for, on every product.
Recipe Defaults();
// The first recipe, with the second where the first says nothing. A spacing in pulses does not
// become one in microseconds.
Recipe Over(Recipe first, const Recipe& second);
// With everything that a model has a default for.
Recipe WithDefaults(const Recipe& recipe, const Model& model, bool images);

// The unit of a setting: the spacing's depends on the trigger.
std::string_view UnitOf(const Setting& setting, const Recipe& recipe);

// Throws a Failure with the limits unless the model has all these settings.
void Require(const Recipe& recipe, const Model& model);
// The same for what the recipe itself says it is for, which may be a family or anything.
void RequireItself(const Recipe& recipe);

// The calls that make the settings of a recipe on a started device.
std::vector<Step> StepsOf(const Recipe& recipe, const Model& model);
// The same with the defaults, and without what a start has done.
std::vector<Step> StepsAfterStart(const Recipe& recipe, const Model& model, bool images);

}  // namespace tool
