#include "Device.h"
#include "Gain.h"
#include "Plan.h"
#include "Registers.h"
#include "SettingOption.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kExposureAbout{
    "exposure", "Sets or shows the exposure times", Touches::kSets,
    "Without times, shows what the FPGA holds, in steps of the image sensor. With several times "
    "(up to five), the exposures take turns.",
    "  tessaline exposure --model K3610\n  tessaline exposure 320 --gain 6 --model K3610\n"
    "  tessaline exposure 100 800 --model K3610"};

constexpr std::array kTimes{fpga::kReg.EXP_TIME_1, fpga::kReg.EXP_TIME_2, fpga::kReg.EXP_TIME_3,
                            fpga::kReg.EXP_TIME_4, fpga::kReg.EXP_TIME_5};

class ExposureCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kExposureAbout, common);
    AddSettingOption(*app_, "microseconds", "One to five exposure times", setting::kExposure,
                     recipe_.exposures)
        .expected(0, static_cast<int>(setting::kMostExposures));
    auto& named = AddSettingOption(*app_, "--time", "The same, with a name", setting::kExposure,
                                   recipe_.exposures);
    named.expected(1, static_cast<int>(setting::kMostExposures))
        ->excludes(app_->get_option("microseconds"));
    AddSettingOption(*app_, "--gain", kGainHelp, setting::kGain, recipe_.gain);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const Model& model = session.model();
    Require(recipe_, model);
    const auto steps = StepsOf(recipe_, model);
    if (steps.empty()) return Show(session);
    Plan plan(session, "exposure");
    plan.Add(recipe_, steps);
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  static ExitCode Show(Session& session) {
    const Registers registers = Device(session).OpenRegisters();
    const unsigned count = fpga::kField.exposure_count.Of(registers.Read(fpga::kReg.EXPOSURE_NUM));
    Json json{{"exposures", count}, {"steps", Json::array()}};
    session.Print("exposures per cycle  {}\n", count);
    for (unsigned i = 0; i < kTimes.size(); ++i) {
      const std::uint32_t steps = registers.Read(kTimes[i]);
      session.Print("exposure {}         {} steps{}\n", i + 1, steps,
                    i < count ? "" : ", not in the cycle");
      json["steps"].push_back(steps);
    }
    session.Emit(json);
    return ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  Recipe recipe_;
};

}  // namespace

std::unique_ptr<Command> MakeExposureCommand() { return std::make_unique<ExposureCommand>(); }

}  // namespace tool
