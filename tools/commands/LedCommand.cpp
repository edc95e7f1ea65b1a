#include "Plan.h"
#include "SettingOption.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kLedAbout{"led", "Sets the colour of the status light", Touches::kSets, "",
                          "  tessaline led green --model K3610\n  tessaline led off --model K3610"};

class LedCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kLedAbout, common);
    AddSettingOption(*app_, "colour", "off, red, green, yellow, blue, magenta, cyan or white",
                     setting::kLed, recipe_.led)
        .required();
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Plan plan(session, "led " + *recipe_.led);
    plan.Add(recipe_, StepsOf(recipe_, session.model()));
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  CLI::App* app_ = nullptr;
  Recipe recipe_;
};

}  // namespace

std::unique_ptr<Command> MakeLedCommand() { return std::make_unique<LedCommand>(); }

}  // namespace tool
