#include "Plan.h"
#include "commands/Commands.h"
#include "tessaline/tessaline.h"

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
    app_->add_option("percent", percent_, "0 to 100 of the potentiometer's travel")
        ->check(NumberIn(0, 100))
        ->type_name("PERCENT")
        ->required();
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Plan plan(session, fmt::format("power {}", percent_));
    plan.Add(fmt::format("SetLaserPower({})", percent_),
             fmt::format("laser power {} %, by the {}", percent_,
                         session.model().family().laser_power_chip),
             [this] { return SetLaserPower(static_cast<float>(percent_)) == 0; });
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  CLI::App* app_ = nullptr;
  double percent_ = 0;
};

}  // namespace

std::unique_ptr<Command> MakePowerCommand() { return std::make_unique<PowerCommand>(); }

}  // namespace tool
