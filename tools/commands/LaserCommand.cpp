#include "Device.h"
#include "Failure.h"
#include "Gpio.h"
#include "Interrupt.h"
#include "Laser.h"
#include "Plan.h"
#include "Registers.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kLaserAbout{
    "laser", "Switches the laser on or off, or shows its state", Touches::kLight,
    "\"on\" leaves the laser on even after the command has ended: switch it off with \"off\". With "
    "--seconds it goes off by itself, or at Ctrl-C. \"status\" only looks.",
    "  tessaline laser status --model K3610\n  tessaline laser on --seconds 5 --model K3610\n"
    "  tessaline laser on --dry-run --model K3610"};

class LaserCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kLaserAbout, common);
    app_->add_option("state", state_, "on, off or status")
        ->check(CLI::IsMember({"on", "off", "status"}))
        ->type_name("STATE")
        ->capture_default_str();
    app_->add_option("--seconds", seconds_, "Switch off again after this many seconds")
        ->check(NumberIn(0.001, 3600));
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    if (state_ == "status") return Show(session);
    if (seconds_ > 0 && state_ == "off") {
      throw Failure(ExitCode::kUsage, "--seconds goes with \"on\" only");
    }
    Plan plan(session, "laser " + state_);
    if (state_ == "off") {
      plan.Add("CloseLaser()", "both laser lines low: off", laser::Off, SwitchOff);
    } else {
      plan.Add(
          "OpenLaser()", "both laser lines high: ON",
          [] {
            if (laser::On() && !Interrupted()) return true;
            laser::Off();  // one of the two may be on
            return Interrupted();
          },
          [this](const live::LiveSensor& sensor) {
            // The daemon counts as well: this process may be killed.
            Json body{{"on", true}};
            if (seconds_ > 0) body["seconds"] = seconds_;
            sensor.Send("PUT", "/api/v1/laser", body);
          });
      if (seconds_ > 0) {
        const auto wait = [this, &session] {
          session.Note("The laser is ON for {} s; Ctrl-C switches it off earlier.", seconds_);
          PauseFor(std::chrono::milliseconds(static_cast<long>(seconds_ * 1000)));
        };
        plan.Add(
            "CloseLaser()", fmt::format("after {} s: off", seconds_),
            [wait] {
              wait();
              return laser::Off();
            },
            [wait](const live::LiveSensor& sensor) {
              wait();
              SwitchOff(sensor);
            });
      }
    }
    const auto* const served = session.live();
    if (served != nullptr && seconds_ > 0) CatchInterrupts([served] { TryToSwitchOff(*served); });
    plan.CarryOut();
    if (session.options().dry_run) return ExitCode::kOk;
    if (Interrupted()) {
      if (session.live() == nullptr) laser::Off();
      return ExitCode::kInterrupted;
    }
    if (state_ == "on" && seconds_ == 0 && !session.on_virtual_board() &&
        session.live() == nullptr) {
      session.Note("The laser stays ON. \"tessaline laser off\" switches it off.");
    }
    return ExitCode::kOk;
  }

 private:
  static void SwitchOff(const live::LiveSensor& sensor) {
    sensor.Send("PUT", "/api/v1/laser", {{"on", false}});
  }

  static void TryToSwitchOff(const live::LiveSensor& sensor) {
    try {
      SwitchOff(sensor);
    } catch (const Failure&) {  // the daemon has gone, and its guard has switched it off
    }
  }

  static ExitCode Show(Session& session) {
    if (const auto* const sensor = session.live()) {
      const Json state = sensor->Get("/api/v1/state");
      session.Print("laser       {}\n", state["laser"] ? "ON" : "off");
      session.Emit({{"on", state["laser"]}});
      return ExitCode::kOk;
    }
    Device(session).RequireRegisters();
    const Model& model = session.model();
    const auto first = GpioLevel(model.family().board.gpio.laser1);
    const auto second = GpioLevel(model.family().board.gpio.laser2);
    const Registers registers(model);
    const unsigned mode = fpga::kField.laser_mode.Of(registers.Read(fpga::kReg.LASER_CTRL));
    const auto text = [](std::optional<bool> level) {
      return !level ? "not exported" : *level ? "high" : "low";
    };
    const auto json = [](std::optional<bool> level) { return level ? Json(*level) : Json(); };
    const bool on = first.value_or(false) && second.value_or(false);
    session.Print("laser       {}\nline {:<6} {}\nline {:<6} {}\nmode        {}\n",
                  on ? "ON" : "off", model.family().board.gpio.laser1, text(first),
                  model.family().board.gpio.laser2, text(second), mode);
    session.Emit({{"on", on}, {"line1", json(first)}, {"line2", json(second)}, {"mode", mode}});
    return ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  std::string state_ = "status";
  double seconds_ = 0;
};

}  // namespace

std::unique_ptr<Command> MakeLaserCommand() { return std::make_unique<LaserCommand>(); }

}  // namespace tool
