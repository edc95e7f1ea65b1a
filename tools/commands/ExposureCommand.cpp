#include <optional>

#include "Device.h"
#include "Gain.h"
#include "Plan.h"
#include "Registers.h"
#include "commands/Commands.h"
#include "tessaline/tessaline.h"

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
    app_->add_option("microseconds", times_, "One to five exposure times")
        ->type_name("MICROSECONDS")
        ->check(CLI::Range(1u, 10'000'000u))
        ->expected(0, static_cast<int>(kTimes.size()));
    app_->add_option("--gain", gain_, kGainHelp);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    if (times_.empty() && !gain_) return Show(session);
    if (gain_) RequireGain(*gain_, session.model());
    Plan plan(session, "exposure");
    if (!times_.empty()) {
      const auto count = static_cast<unsigned>(times_.size());
      plan.Add(fmt::format("SetExposureNum({})", count),
               fmt::format("{} exposure{} per cycle", count, count == 1 ? "" : "s"),
               [count] { return SetExposureNum(count) == 0; });
    }
    for (unsigned i = 0; i < times_.size(); ++i) {
      plan.Add(fmt::format("SetExposureTime({}, {})", i + 1, times_[i]),
               fmt::format("exposure {}: {} us", i + 1, times_[i]),
               [this, i] { return SetExposureTime(i + 1, times_[i]) == 0; });
    }
    if (gain_) {
      plan.Add(fmt::format("SetCmosGain({})", *gain_), fmt::format("analogue gain {}", *gain_),
               [this] { return SetCmosGain(*gain_) == 1; });
    }
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  static ExitCode Show(Session& session) {
    Device(session).RequireRegisters();
    const Registers registers(session.model());
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
  std::vector<unsigned> times_;
  std::optional<unsigned> gain_;
};

}  // namespace

std::unique_ptr<Command> MakeExposureCommand() { return std::make_unique<ExposureCommand>(); }

}  // namespace tool
