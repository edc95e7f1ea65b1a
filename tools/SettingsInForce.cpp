#include "SettingsInForce.h"

#include "Failure.h"
#include "Registers.h"

namespace tool {

void SettingsInForce::Start(const Recipe& recipe, bool images) {
  asked_ = recipe;
  const Registers registers(model_);
  const std::uint32_t trigger = registers.Read(fpga::kReg.TRIGGER_CTRL);
  at_start_.door = setting::kStates[fpga::kField.door_control.Of(trigger)];
  if (fpga::kField.trigger_delay_enable.Of(trigger) == 0) at_start_.delay = 0;
  Run(StepsAfterStart(asked_, model_, images));
}

void SettingsInForce::Change(const Recipe& recipe, bool images) {
  Require(recipe, model_);
  // A spacing in pulses is none in microseconds, so another trigger brings its own.
  const Recipe wanted = Over(recipe, asked_);
  Recipe steps = recipe;
  if (steps.trigger) steps.spacing = WithDefaults(wanted, model_, images).spacing;
  const Recipe before = All(images);
  try {
    Run(StepsOf(steps, model_));
  } catch (const Failure&) {
    Recipe back;
    ForEachSetting([&](const Setting&, auto member) {
      if (steps.*member) back.*member = before.*member;
    });
    Run(StepsOf(back, model_));
    throw;
  }
  asked_ = wanted;
}

void SettingsInForce::SwitchMode(bool images) {
  const Recipe full = WithDefaults(asked_, model_, images);
  Recipe spacing;
  spacing.trigger = full.trigger;
  spacing.spacing = full.spacing;
  Run(StepsOf(spacing, model_));
}

Recipe SettingsInForce::All(bool images) const {
  Recipe all = Over(WithDefaults(asked_, model_, images), at_start_);
  all.laser.reset();
  return all;
}

}  // namespace tool
