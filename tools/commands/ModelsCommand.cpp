#include "Failure.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kModelsAbout{
    "models", "Lists the products: model code, series, sensor, strips, buses", Touches::kNothing,
    "Strip geometry: width x height is the size of a strip buffer in bytes, followed by the bytes "
    "per point.",
    "  tessaline models\n  tessaline models K3920arm_rebuild --json"};

Json AsJson(const Model& model) {
  const Family& family = model.family();
  return {{"model", model.code()},
          {"series", family.series},
          {"variant", model.variant()},
          {"soc", family.soc},
          {"sensor", family.sensor},
          {"width", family.width},
          {"height", model.height()},
          {"strip_width", family.strip_width},
          {"strip_height", family.strip_height},
          {"strip_buffer_bytes", family.strip_width * family.strip_height},
          {"bytes_per_point", model.bytes_per_point()},
          {"sensor_bus", family.sensor_bus},
          {"laser_bus", family.laser_bus},
          {"laser_power_chip", family.pot}};
}

class ModelsCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kModelsAbout, common);
    app_->add_option("code", codes_, "Only these model codes")->type_name("CODE");
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const auto codes = Codes();
    Json list = Json::array();
    session.Print("{:<21}{:<7}{:<15}{:<13}{:<12}{:<7}{:<16}{:<12}{}\n", "MODEL", "SERIES", "SENSOR",
                  "PIXELS", "STRIPS", "POINT", "SENSOR BUS", "LASER BUS", "REMARK");
    for (const std::string_view code : codes) {
      const Model model(code);
      const Family& family = model.family();
      session.Print("{:<21}{:<7}{:<15}{:<13}{:<12}{:<7}{:<16}{:<12}{}\n", code, family.series,
                    family.sensor, fmt::format("{} x {}", family.width, model.height()),
                    fmt::format("{} x {}", family.strip_width, family.strip_height),
                    fmt::format("{} B", model.bytes_per_point()), family.sensor_bus,
                    family.laser_bus, model.variant());
      list.push_back(AsJson(model));
    }
    session.Emit(list);
    return ExitCode::kOk;
  }

 private:
  std::vector<std::string_view> Codes() const {
    std::vector<std::string_view> codes;
    for (const std::string& code : codes_) {
      if (!Model(code).known()) {
        throw Failure(ExitCode::kUsage, fmt::format("unknown model \"{}\"", code),
                      "\"tessaline models\" lists the model codes");
      }
      codes.push_back(code);
    }
    if (!codes.empty()) return codes;
    for (const Family& family : kFamilies) {
      for (const std::string_view code : CodesOf(family)) codes.push_back(code);
    }
    return codes;
  }

  CLI::App* app_ = nullptr;
  std::vector<std::string> codes_;
};

}  // namespace

std::unique_ptr<Command> MakeModelsCommand() { return std::make_unique<ModelsCommand>(); }

}  // namespace tool
