#include <algorithm>
#include <array>

#include "Device.h"
#include "Registers.h"
#include "Temperature.h"
#include "commands/Commands.h"
#include "tessaline/tessaline.h"
#include "watch/Counters.h"

namespace tool {
namespace {

constexpr About kInfoAbout{
    "info", "Shows versions, FPGA, sensor, temperatures and counters", Touches::kMayStart,
    "With --start, asks the image sensor as well; starting some products takes images.",
    "  tessaline info --virtual K3610\n  tessaline info --model K3920 --start --json"};

constexpr unsigned kSeriesShift = 16;
constexpr double kUnreadableBelow = -270;  // what the library returns if it cannot read it

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
    const Registers registers = RegistersOf(session);
    const auto read = [&](const fpga::Register& reg) { return registers.Read(reg); };
    const auto read64 = [&](const fpga::Register& low, const fpga::Register& high) {
      const std::uint64_t lower = read(low);
      return std::uint64_t{read(high)} << 32 | lower;
    };
    const std::uint32_t fpga_version = read(fpga::kReg.FPGA_VERSION);
    const auto temperature =
        session.live() == nullptr ? Processor(model.family()) : OfDaemon(*session.live());

    Json info{
        {"model", model.code()},
        {"board", session.IsVirtual() ? "virtual" : "hardware"},
        {"interface_version", GetLibVersion(std::string(model.code()).c_str())},
        {"fpga", {{"series", fpga_version >> kSeriesShift}, {"version", fpga_version & 0xFFFF}}},
        {"sensor", model.family().sensor.name},
        {"width", model.family().sensor.width},
        {"height", model.product().Height()}};
    info["processor_temperature"] = temperature ? Json(*temperature) : Json(nullptr);
    const std::int64_t board_temperature = Temp18b20Read();
    info["board_temperature_18b20"] =
        board_temperature != 0 ? Json(board_temperature) : Json(nullptr);
    if (start_) info["sensor_thermometer_answers"] = SensorAnswers(model.family());
    info["acquisition_running"] =
        fpga::kField.global_control.Of(read(fpga::kReg.TRIGGER_CTRL)) != 0;
    info["counters"] = {
        {"timer", read64(fpga::kReg.TIMER_COUNTER_L, fpga::kReg.TIMER_COUNTER_H)},
        {"encoder", read64(fpga::kReg.ENCODER_COUNTER_L, fpga::kReg.ENCODER_COUNTER_H)},
        {"encoder_frequency", read(fpga::kReg.ENCODER_FREQ)},
        {"triggers_lost", read(fpga::kReg.XTRIG_LOST_STA)},
        {"callbacks_lost", read(fpga::kReg.CALLBACK_LOST_NUM)},
        {"output1_lost", read(fpga::kReg.DO1_LOST_STA)},
        {"output2_lost", read(fpga::kReg.DO2_LOST_STA)},
        {"communication_errors", read(fpga::kReg.COMM_VERIFY_ERROR_STA)}};
    const Json served =
        session.live() == nullptr ? Json() : session.live()->Get("/api/v1/statistics");
    for (const CaptureStream& stream : kCaptureStreams) {
      info["captured"][stream.name] =
          served.is_null() ? CaptureCounters(stream.number) : served[stream.name];
    }
    Show(session, info);
    session.Emit(info);
    return ExitCode::kOk;
  }

 private:
  static std::optional<double> OfDaemon(const live::LiveSensor& sensor) {
    const Json temperatures = sensor.Get("/api/v1/state")["temperatures"];
    if (!temperatures.contains("processor")) return std::nullopt;
    return temperatures["processor"].get<double>();
  }

  // The library knows it once started; the kernel always does.
  std::optional<double> Processor(const Family& family) const {
    if (!start_) return ProcessorTemperature(family);
    const double temperature = GetCpuTemp();
    return temperature > kUnreadableBelow ? std::optional(temperature) : std::nullopt;
  }

  // The library only says whether there is a temperature.
  static Json SensorAnswers(const Family& family) {
    if (!family.sensor.has_thermometer) return nullptr;  // nothing to ask it for
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
    line("sensor temperature", SensorTemperature(session.model().family(), info));
    const Json& temperature = info["processor_temperature"];
    line("processor temperature", temperature.is_null()
                                      ? "not available"
                                      : fmt::format("{:.1f} degrees C", temperature.get<double>()));
    const Json& board_temperature = info["board_temperature_18b20"];
    line("18b20 temperature",
         board_temperature.is_null() ? "not available" : board_temperature.dump());
    line("acquisition", info["acquisition_running"] ? "running" : "stopped");
    const Json& counters = info["counters"];
    constexpr double kTicksPerSecond = 50e6;
    line("timer", fmt::format("{} ticks of 20 ns ({:.3f} s)", number(counters["timer"]),
                              counters["timer"].get<double>() / kTicksPerSecond));
    line("encoder", fmt::format("{} counts, {} per second", number(counters["encoder"]),
                                number(counters["encoder_frequency"])));
    line("triggers lost", number(counters["triggers_lost"]));
    line("callbacks lost", number(counters["callbacks_lost"]));
    line("output events lost", fmt::format("{} and {}", number(counters["output1_lost"]),
                                           number(counters["output2_lost"])));
    line("communication errors", number(counters["communication_errors"]));
    for (const CaptureStream& stream : kCaptureStreams) {
      ShowCaptured(session, stream.name, info["captured"][stream.name]);
    }
  }

  static std::string SensorTemperature(const Family& family, const Json& info) {
    if (!family.sensor.has_thermometer) return "not available";
    if (!info.contains("sensor_thermometer_answers")) return "not asked (--start asks)";
    return info["sensor_thermometer_answers"] ? "answers; the library returns no value"
                                              : "DOES NOT ANSWER";
  }

  static void ShowCaptured(Session& session, const std::string& stream, const Json& statistics) {
    if (statistics.is_null()) {
      session.Print("{:<24}none by this process\n", stream + " captured");
      return;
    }
    std::array<std::string, kCaptureCounters.back().group + 1> lines;
    for (const CaptureCounter& counter : kCaptureCounters) {
      std::string& line = lines[counter.group];
      std::string name = counter.name;
      std::replace(name.begin(), name.end(), '_', ' ');
      line += fmt::format("{}{} {}", line.empty() ? "" : ", ", name,
                          statistics[counter.name].get<std::uint64_t>());
    }
    std::string title = stream + " captured";
    for (const std::string& line : lines) {
      session.Print("{:<24}{}\n", std::exchange(title, {}), line);
    }
  }

  CLI::App* app_ = nullptr;
  bool start_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeInfoCommand() { return std::make_unique<InfoCommand>(); }

}  // namespace tool
