#include "Plan.h"
#include "SettingOption.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kPowerAbout{
    "power", "Sets the optical power of the laser", Touches::kSets,
    "Does not switch the laser on: \"tessaline laser on\" does. The power cannot be read back.",
    "  tessaline power 50 --model K3610"};

class PowerCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kPowerAbout, common);
    AddSettingOption(*app_, "percent", "0 to 100 of the potentiometer's travel", setting::kPower,
                     recipe_.power)
        .required();
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Plan plan(session, fmt::format("power {}", *recipe_.power));
    plan.Add(recipe_, StepsOf(recipe_, session.model()));
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  CLI::App* app_ = nullptr;
  Recipe recipe_;
};

}  // namespace

std::unique_ptr<Command> MakePowerCommand() { return std::make_unique<PowerCommand>(); }

}  // namespace tool
