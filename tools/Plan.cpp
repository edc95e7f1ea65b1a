#include "Plan.h"

#include <algorithm>
#include <iterator>

#include "Device.h"

namespace tool {
namespace {

constexpr const char* kKeep =
    "give it to \"capture\" and \"watch\" as an option, or keep it with \"tessaline recipe save\".";

}  // namespace

void Plan::Add(std::string call, std::string effect, std::function<bool()> run,
               std::function<void(const live::LiveSensor&)> live) {
  steps_.push_back({std::move(call), std::move(effect), std::move(run)});
  live_.push_back(std::move(live));
}

void Plan::Add(const Recipe& recipe, std::vector<Step> calls) {
  std::move(calls.begin(), calls.end(), std::back_inserter(steps_));
  live_.emplace_back([recipe](const live::LiveSensor& sensor) { sensor.Change(recipe); });
}

void Plan::CarryOut() {
  if (session_.options().dry_run) {
    session_.model();
    Tell(false);
    return;
  }
  if (const auto* const sensor = session_.live()) {
    for (const auto& act : live_) act(*sensor);
  } else {
    Device device(session_);
    device.Start();
    Run(steps_);
  }
  Tell(true);
}

void Plan::Tell(bool done) const {
  Json json{{"command", title_}, {"dry_run", !done}, {"steps", Json::array()}};
  session_.Print("{}:\n", done ? title_ : title_ + " would");
  const bool live = session_.live() != nullptr;
  if (!live) {
    for (const auto& [call, effect] : Device::kStart) {
      session_.Print("  {:<34} {}\n", call, effect);
    }
  }
  for (const Step& step : steps_) {
    session_.Print("  {:<34} {}\n", step.call, step.effect);
    json["steps"].push_back({{"call", step.call}, {"effect", step.effect}});
  }
  if (!done) {
    session_.Print("Nothing was touched (--dry-run).\n");
  } else if (live) {
    session_.Print("The setting holds until somebody changes it, or {} ends.\n",
                   session_.live()->Name());
  } else if (session_.on_virtual_board()) {
    session_.Print("The virtual board goes away with this command, and the setting with it: {}\n",
                   kKeep);
  } else {
    session_.Print(
        "The setting is gone when a command or an application starts the device again: {}\n",
        kKeep);
  }
  session_.Emit(json);
}

}  // namespace tool
