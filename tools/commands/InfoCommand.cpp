#include "Device.h"
#include "Registers.h"
#include "Temperature.h"
#include "commands/Commands.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr About kInfoAbout{
    "info", "Shows versions, FPGA, sensor, temperatures and counters", Touches::kMayStart,
    "With --start the image sensor can be asked, too.",
    "  tessaline info --virtual K3610\n  tessaline info --model K3920 --start --json"};

constexpr unsigned kSeriesShift = 16;

class InfoCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kInfoAbout, common);
    app_->add_flag("--start", start_, "Start the device first and ask the image sensor");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const Model& model = session.model();
    Device device(session);
    if (!device.Open(start_)) return ExitCode::kOk;
    const Registers registers(model);
    const auto read = [&](const fpga::Register& reg) { return registers.Read(reg); };
    const auto read64 = [&](const fpga::Register& low, const fpga::Register& high) {
      const std::uint64_t lower = read(low);
      return std::uint64_t{read(high)} << 32 | lower;
    };
    const std::uint32_t fpga_version = read(fpga::FPGA_VERSION);
    const auto temperature = ProcessorTemperature(model.family());

    Json info{
        {"model", model.code()},
        {"board", session.on_virtual_board() ? "virtual" : "hardware"},
        {"interface_version", GetLibVersion(std::string(model.code()).c_str())},
        {"fpga", {{"series", fpga_version >> kSeriesShift}, {"version", fpga_version & 0xFFFF}}},
        {"sensor", model.family().sensor},
        {"width", model.family().width},
        {"height", model.height()}};
    info["processor_temperature"] = temperature ? Json(*temperature) : Json(nullptr);
    if (start_) info["sensor_answers"] = SensorAnswers(model.family());
    info["acquisition_running"] = fpga::kGlobalControl.Of(read(fpga::TRIGGER_CTRL)) != 0;
    info["counters"] = {{"timer", read64(fpga::TIMER_COUNTER_L, fpga::TIMER_COUNTER_H)},
                        {"encoder", read64(fpga::ENCODER_COUNTER_L, fpga::ENCODER_COUNTER_H)},
                        {"encoder_frequency", read(fpga::ENCODER_FREQ)},
                        {"triggers_lost", read(fpga::XTRIG_LOST_STA)},
                        {"strips_lost", read(fpga::CALLBACK_LOST_NUM)},
                        {"output1_lost", read(fpga::DO1_LOST_STA)},
                        {"output2_lost", read(fpga::DO2_LOST_STA)},
                        {"communication_errors", read(fpga::COMM_VERIFY_ERROR_STA)}};
    Show(session, info);
    session.Emit(info);
    return ExitCode::kOk;
  }

 private:
  static Json SensorAnswers(const Family& family) {
    if (!family.has_sensor_thermometer) return nullptr;  // nothing to ask it for
    return GetSensorTemp() == 0 && !LibraryOutput::Instance().HasPrinted("Abnormal communication");
  }

  void Show(Session& session, const Json& info) const {
    const auto line = [&](const char* name, const std::string& value) {
      session.Print("{:<24}{}\n", name, value);
    };
    const auto number = [](const Json& json) { return std::to_string(json.get<std::uint64_t>()); };
    line("model", fmt::format("{} ({} board)", info["model"].get<std::string>(),
                              info["board"].get<std::string>()));
    line("interface version", number(info["interface_version"]));
    const unsigned version = info["fpga"]["version"];
    line("FPGA", fmt::format("series {}, version {}.{}", number(info["fpga"]["series"]),
                             version >> 8, version & 0xFF));
    line("image sensor", fmt::format("{}, {} x {} pixels", info["sensor"].get<std::string>(),
                                     number(info["width"]), number(info["height"])));
    if (info.contains("sensor_answers")) {
      const Json& answers = info["sensor_answers"];
      line("sensor thermometer", answers.is_null() ? "none in this sensor"
                                 : answers         ? "answers"
                                                   : "DOES NOT ANSWER");
    }
    const Json& temperature = info["processor_temperature"];
    line("processor temperature", temperature.is_null()
                                      ? "cannot be read"
                                      : fmt::format("{:.1f} degrees C", temperature.get<double>()));
    line("acquisition", info["acquisition_running"] ? "running" : "stopped");
    const Json& counters = info["counters"];
    constexpr double kTicksPerSecond = 50e6;
    line("timer", fmt::format("{} ticks of 20 ns ({:.3f} s)", number(counters["timer"]),
                              counters["timer"].get<double>() / kTicksPerSecond));
    line("encoder", fmt::format("{} counts, {} per second", number(counters["encoder"]),
                                number(counters["encoder_frequency"])));
    line("triggers lost", number(counters["triggers_lost"]));
    line("strips lost", number(counters["strips_lost"]));
    line("output events lost", fmt::format("{} and {}", number(counters["output1_lost"]),
                                           number(counters["output2_lost"])));
    line("communication errors", number(counters["communication_errors"]));
  }

  CLI::App* app_ = nullptr;
  bool start_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeInfoCommand() { return std::make_unique<InfoCommand>(); }

}  // namespace tool
