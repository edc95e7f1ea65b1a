#include "Device.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Nodes.h"
#include "check/ActiveChecks.h"
#include "check/FrameChecks.h"
#include "check/PassiveChecks.h"
#include "commands/Commands.h"
#include "tessaline/startup.h"

namespace tool {
namespace {

constexpr About kCheckAbout{
    "check", "Checks a board step by step: run this first", Touches::kLight,
    "Tests device nodes, FPGA, EEPROM and temperature, starts the device, asks image sensor, laser "
    "power chip and DA converter (whose output is set to 0), drives the status light, and takes "
    "frames in both collect modes. Drives the laser only with --laser. Each step passes, fails "
    "(and says what to do), is skipped because an earlier one failed, or does not apply. The exit "
    "status is 1 when a step failed.",
    "  tessaline check --virtual K3610\n  tessaline check --laser --model K3920\n"
    "  tessaline check --passive --model K3920"};

class CheckCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kCheckAbout, common);
    app_->add_flag("--laser", laser_, "Also drive the laser, and look for its line");
    app_->add_flag("--passive", passive_, "Only the steps that change nothing on the board");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const Model& model = session.model();
    if (session.options().dry_run) return Rehearse(session);
    session.RequireNoDaemon();
    Findings findings(session);
    const bool board = IsABoard(model.family());
    CheckNodes(model, findings);
    CheckEeprom(findings);
    CheckTemperature(model, findings);
    if (!board) {
      SkipFpga(findings, fmt::format("this machine is not a {} board", model.code()));
    } else if (findings.Failed("node.mem")) {
      SkipFpga(findings, "/dev/mem cannot be opened");
    } else {
      GetLibVersion(std::string(model.code()).c_str());
      CheckFpga(model, findings);
      CheckActively(session, findings);
    }
    findings.Conclude();
    if (Interrupted()) return ExitCode::kInterrupted;
    return findings.Count(Verdict::kFail) == 0 ? ExitCode::kOk : ExitCode::kNegative;
  }

 private:
  static void SkipFpga(Findings& findings, const std::string& why) {
    findings.Skip("fpga.answers", "FPGA answers", why);
    findings.Skip("start", "device starts", why);
    SkipActiveChecks(why, findings);
  }

  void CheckActively(Session& session, Findings& findings) const {
    const Model& model = session.model();
    if (passive_ || findings.Failed("fpga.answers")) {
      const std::string why = passive_ ? "--passive" : "the FPGA does not answer";
      findings.Skip("start", "device starts", why);
      SkipActiveChecks(why, findings);
      return;
    }
    Device device(session);
    if (!CheckStart(device, findings)) return;
    CheckSensor(model, findings);
    CheckLines(model, findings);
    CheckLaserBus(model, findings);
    FrameChecks frames(device, model, findings);
    frames.Images();
    frames.Strips(laser_);
  }

  ExitCode Rehearse(Session& session) const {
    session.Print(
        "check would test {} device nodes, the FPGA, the EEPROM and the temperature{}\n"
        "Nothing was touched (--dry-run).\n",
        NodesOf(session.model().family()).size(),
        passive_ ? "."
        : laser_ ? ",\nset up FPGA and image sensor, drive status light, DA output and LASER, and "
                   "take frames."
                 : ",\nset up FPGA and image sensor, drive status light and DA output, and take "
                   "frames. The laser would stay off.");
    session.Emit({{"dry_run", true}, {"starts", !passive_}, {"laser", laser_ && !passive_}});
    return ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  bool laser_ = false;
  bool passive_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeCheckCommand() { return std::make_unique<CheckCommand>(); }

}  // namespace tool
