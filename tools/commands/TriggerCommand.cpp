#include <array>

#include "Device.h"
#include "Failure.h"
#include "Plan.h"
#include "Registers.h"
#include "commands/Commands.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr About kTriggerAbout{
    "trigger", "Sets or shows what triggers a frame", Touches::kSets,
    "Without options, shows the settings. --spacing counts encoder pulses in encoder mode, "
    "microseconds otherwise.",
    "  tessaline trigger --model K3610\n"
    "  tessaline trigger --mode timer --spacing 1000 --model K3610\n"
    "  tessaline trigger --mode encoder --spacing 10 --model K3610"};

constexpr std::array<const char*, 4> kModes{"timer", "encoder", "external", "timer-start"};
constexpr unsigned kEncoder = 1;

class TriggerCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kTriggerAbout, common);
    mode_option_ =
        app_->add_option("--mode", mode_,
                         "timer, encoder, external, or timer-start (also the timer; set "
                         "after a start)")
            ->check(CLI::IsMember(std::vector<std::string>(kModes.begin(), kModes.end())))
            ->type_name("MODE");
    spacing_option_ = app_->add_option("--spacing", spacing_, "Trigger spacing")
                          ->check(CLI::Range(1u, 85'899'345u));
    delay_option_ = app_->add_option("--delay", delay_,
                                     "Microseconds from trigger to exposure; 0 switches it off")
                        ->check(CLI::Range(0u, 85'899'345u));
    filter_option_ = app_->add_option("--input-filter", filter_,
                                      "Shortest pulse the external input accepts, microseconds")
                         ->check(CLI::Range(0u, 85'899'345u));
    door_option_ =
        app_->add_option("--door", door_, "on or off: the external input gates the trigger")
            ->check(CLI::IsMember({"on", "off"}))
            ->type_name("STATE");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Plan plan(session, "trigger");
    bool anything = false;
    const auto add = [&](const CLI::Option* option, auto... step) {
      if (option->count() == 0) return;
      anything = true;
      plan.Add(step...);
    };
    const auto mode =
        static_cast<unsigned>(std::find(kModes.begin(), kModes.end(), mode_) - kModes.begin());
    add(mode_option_, fmt::format("SetTriMode({})", mode), "trigger mode " + mode_,
        [mode] { return SetTriMode(mode) == 0; });
    add(spacing_option_, fmt::format("SetTriSpacing({})", spacing_),
        fmt::format("a trigger every {} {}", spacing_, mode == kEncoder ? "pulses" : "us"),
        [this] { return SetTriSpacing(spacing_) == 0; });
    add(delay_option_, fmt::format("SetTriDelay({})", delay_),
        fmt::format("exposure {} us after the trigger", delay_), [this] {
          return SetTriDelayStandard(0) == 0 && SetTriDelay(delay_) == 0 &&
                 SetDelayEn(delay_ == 0 ? 0 : 1) == 0;
        });
    add(filter_option_, fmt::format("SetExternSignalFilter({})", filter_),
        fmt::format("external pulses shorter than {} us are ignored", filter_),
        [this] { return SetExternSignalFilter(filter_) == 0; });
    const unsigned door = door_ == "on" ? 1 : 0;
    add(door_option_, fmt::format("SetDoorControlEn({})", door), "door control " + door_,
        [door] { return SetDoorControlEn(door) == 0; });
    if (!anything) return Show(session);
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  static ExitCode Show(Session& session) {
    Device(session).RequireRegisters();
    const Registers registers(session.model());
    const std::uint32_t control = registers.Read(fpga::kReg.TRIGGER_CTRL);
    const unsigned mode = fpga::kField.trigger_mode.Of(control);
    const std::uint32_t spacing = registers.Read(fpga::kReg.TRI_SPACING);
    const bool delay_on = fpga::kField.trigger_delay_enable.Of(control) != 0;
    const std::uint32_t delay = registers.Read(fpga::kReg.TRI_DELAY);
    const std::uint32_t lost = registers.Read(fpga::kReg.XTRIG_LOST_STA);
    const bool level = registers.Read(fpga::kReg.EXT_TRIGGER_LEVEL) != 0;
    const bool pulses = mode == kEncoder;
    const double spacing_value = pulses ? spacing : spacing / double{fpga::kTicksPerMicrosecond};
    session.Print("mode            {} ({})\n", mode, kModes[mode]);
    session.Print("spacing         {} {}\n", spacing_value, pulses ? "encoder pulses" : "us");
    session.Print("delay           {}\n", delay_on ? fmt::format("{} (raw)", delay) : "off");
    session.Print("door control    {}\n",
                  fpga::kField.door_control.Of(control) != 0 ? "on" : "off");
    session.Print("acquisition     {}\n",
                  fpga::kField.global_control.Of(control) != 0 ? "running" : "stopped");
    session.Print("external input  {}\n", level ? "high" : "low");
    session.Print("triggers lost   {}\n", lost);
    session.Emit({{"mode", kModes[mode]},
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
  CLI::Option* mode_option_ = nullptr;
  CLI::Option* spacing_option_ = nullptr;
  CLI::Option* delay_option_ = nullptr;
  CLI::Option* filter_option_ = nullptr;
  CLI::Option* door_option_ = nullptr;
  std::string mode_;
  std::string door_;
  unsigned spacing_ = 0;
  unsigned delay_ = 0;
  unsigned filter_ = 0;
};

}  // namespace

std::unique_ptr<Command> MakeTriggerCommand() { return std::make_unique<TriggerCommand>(); }

}  // namespace tool
