#include "Plan.h"

#include "Device.h"
#include "Failure.h"

namespace tool {

void Plan::Add(std::string call, std::string effect, std::function<bool()> run) {
  steps_.push_back({std::move(call), std::move(effect), std::move(run)});
}

void Plan::CarryOut() {
  if (session_.options().dry_run) {
    session_.model();
    Tell(false);
    return;
  }
  Device device(session_);
  device.Start();
  for (const Step& step : steps_) {
    if (step.run()) continue;
    // The library's own text is the most precise reason.
    const auto printed = LibraryOutput::Instance().Printed();
    throw Failure(ExitCode::kNegative,
                  fmt::format("{} was refused{}", step.call,
                              printed.empty() ? "" : fmt::format(" (\"{}\")", printed.back())),
                  "see the ranges in the sub-command's --help, and \"tessaline check\" for the "
                  "board");
  }
  Tell(true);
}

void Plan::Tell(bool done) const {
  Json json{{"command", title_}, {"dry_run", !done}, {"steps", Json::array()}};
  session_.Print("{}:\n", done ? title_ : title_ + " would");
  session_.Print(
      "  {:<34} {}\n", "RegisterHardwareInit()",
      done ? "FPGA and image sensor set up from scratch" : "set up FPGA and image sensor");
  session_.Print("  {:<34} {}\n", "SetGlobalControl(0)", "no acquisition");
  for (const Step& step : steps_) {
    session_.Print("  {:<34} {}\n", step.call, step.effect);
    json["steps"].push_back({{"call", step.call}, {"effect", step.effect}});
  }
  if (!done) {
    session_.Print("Nothing was touched (--dry-run).\n");
  } else if (session_.on_virtual_board()) {
    session_.Print("The virtual board goes away with this command.\n");
  } else {
    session_.Print(
        "The setting holds until a command or an application starts the device again.\n");
  }
  session_.Emit(json);
}

}  // namespace tool
