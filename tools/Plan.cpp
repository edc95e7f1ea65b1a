#include "Plan.h"

#include <algorithm>
#include <iterator>

#include "Device.h"

namespace tool {
namespace {

constexpr const char* kKeep =
    "give it to \"capture\" and \"watch\" as an option, or keep it with \"tessaline recipe save\".";

}  // namespace

void Plan::Add(std::string call, std::string effect, std::function<bool()> run) {
  steps_.push_back({std::move(call), std::move(effect), std::move(run)});
}

void Plan::Add(std::vector<Step> steps) {
  std::move(steps.begin(), steps.end(), std::back_inserter(steps_));
}

void Plan::CarryOut() {
  if (session_.options().dry_run) {
    session_.model();
    Tell(false);
    return;
  }
  Device device(session_);
  device.Start();
  Run(steps_);
  Tell(true);
}

void Plan::Tell(bool done) const {
  Json json{{"command", title_}, {"dry_run", !done}, {"steps", Json::array()}};
  session_.Print("{}:\n", done ? title_ : title_ + " would");
  for (const auto& [call, effect] : Device::kStart) {
    session_.Print("  {:<34} {}\n", call, effect);
  }
  for (const Step& step : steps_) {
    session_.Print("  {:<34} {}\n", step.call, step.effect);
    json["steps"].push_back({{"call", step.call}, {"effect", step.effect}});
  }
  if (!done) {
    session_.Print("Nothing was touched (--dry-run).\n");
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
