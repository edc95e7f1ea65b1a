#include "Device.h"
#include "Plan.h"
#include "Registers.h"
#include "SettingOption.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kTriggerAbout{
    "trigger", "Sets or shows what triggers a frame", Touches::kSets,
    "Without options, shows the settings. --spacing counts encoder pulses in encoder mode, "
    "microseconds otherwise.",
    "  tessaline trigger --model K3610\n"
    "  tessaline trigger --mode timer --spacing 1000 --model K3610\n"
    "  tessaline trigger --mode encoder --spacing 10 --model K3610"};

constexpr unsigned kEncoder = 1;

class TriggerCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kTriggerAbout, common);
    AddSettingOption(*app_, "--mode",
                     "timer, encoder, external, or timer-start (also the timer; set after a start)",
                     setting::kTrigger, recipe_.trigger);
    AddSettingOption(*app_, "--spacing", "Trigger spacing", setting::kSpacing, recipe_.spacing);
    AddSettingOption(*app_, "--delay", "Time from trigger to exposure; 0 switches it off",
                     setting::kDelay, recipe_.delay);
    AddSettingOption(*app_, "--input-filter", "Shortest pulse the external input accepts",
                     setting::kFilter, recipe_.filter);
    AddSettingOption(*app_, "--door", "on or off: the external input gates the trigger",
                     setting::kDoor, recipe_.door);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const auto steps = StepsOf(recipe_, session.model());
    if (steps.empty()) return Show(session);
    Plan plan(session, "trigger");
    plan.Add(recipe_, steps);
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  static ExitCode Show(Session& session) {
    const Registers registers = Device(session).OpenRegisters();
    const std::uint32_t control = registers.Read(fpga::kReg.TRIGGER_CTRL);
    const unsigned mode = fpga::kField.trigger_mode.Of(control);
    const std::uint32_t spacing = registers.Read(fpga::kReg.TRI_SPACING);
    const bool delay_on = fpga::kField.trigger_delay_enable.Of(control) != 0;
    const std::uint32_t delay = registers.Read(fpga::kReg.TRI_DELAY);
    const std::uint32_t lost = registers.Read(fpga::kReg.XTRIG_LOST_STA);
    const bool level = registers.Read(fpga::kReg.EXT_TRIGGER_LEVEL) != 0;
    const bool pulses = mode == kEncoder;
    const double spacing_value = pulses ? spacing : spacing / double{fpga::kTicksPerMicrosecond};
    session.Print("mode            {} ({})\n", mode, setting::kTriggers[mode]);
    session.Print("spacing         {} {}\n", spacing_value, pulses ? "encoder pulses" : "us");
    session.Print("delay           {}\n", delay_on ? fmt::format("{} (raw)", delay) : "off");
    session.Print("door control    {}\n",
                  fpga::kField.door_control.Of(control) != 0 ? "on" : "off");
    session.Print("acquisition     {}\n",
                  fpga::kField.global_control.Of(control) != 0 ? "running" : "stopped");
    session.Print("external input  {}\n", level ? "high" : "low");
    session.Print("triggers lost   {}\n", lost);
    session.Emit({{"mode", setting::kTriggers[mode]},
                  {"spacing", spacing_value},
                  {"spacing_unit", pulses ? "pulses" : "us"},
                  {"delay_enabled", delay_on},
                  {"delay_raw", delay},
                  {"door_control", fpga::kField.door_control.Of(control) != 0},
                  {"acquisition_running", fpga::kField.global_control.Of(control) != 0},
                  {"external_input", level},
                  {"triggers_lost", lost}});
    return ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  Recipe recipe_;
};

}  // namespace

std::unique_ptr<Command> MakeTriggerCommand() { return std::make_unique<TriggerCommand>(); }

}  // namespace tool
