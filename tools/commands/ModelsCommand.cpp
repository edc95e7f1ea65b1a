#include <vector>

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
          {"variant", model.product().remark},
          {"soc", family.board.processor.name},
          {"sensor", family.sensor.name},
          {"width", family.sensor.width},
          {"height", model.product().Height()},
          {"strip_width", family.sensor.strips.width},
          {"strip_height", family.sensor.strips.height},
          {"strip_buffer_bytes", family.sensor.strips.Bytes()},
          {"bytes_per_point", model.product().PointBytes()},
          {"sensor_bus", family.board.sensor_bus.path},
          {"laser_bus", family.board.laser_bus.path},
          {"laser_power_chip", family.laser_power_chip}};
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
    Session::LeaveOutBoard();
    Json list = Json::array();
    session.Print("{:<21}{:<7}{:<15}{:<13}{:<12}{:<7}{:<16}{:<12}{}\n", "MODEL", "SERIES", "SENSOR",
                  "PIXELS", "STRIPS", "POINT", "SENSOR BUS", "LASER BUS", "REMARK");
    for (const std::string_view code : codes) {
      const Model model(code);
      const Family& family = model.family();
      session.Print("{:<21}{:<7}{:<15}{:<13}{:<12}{:<7}{:<16}{:<12}{}\n", code, family.series,
                    family.sensor.name,
                    fmt::format("{} x {}", family.sensor.width, model.product().Height()),
                    fmt::format("{} x {}", family.sensor.strips.width, family.sensor.strips.height),
                    fmt::format("{} B", model.product().PointBytes()), family.board.sensor_bus.path,
                    family.board.laser_bus.path, model.product().remark);
      list.push_back(AsJson(model));
    }
    session.Emit(list);
    return ExitCode::kOk;
  }

 private:
  std::vector<std::string_view> Codes() const {
    if (codes_.empty()) return ModelCodes();
    for (const std::string& code : codes_) Model(code).Require();
    return {codes_.begin(), codes_.end()};
  }

  CLI::App* app_ = nullptr;
  std::vector<std::string> codes_;
};

}  // namespace

std::unique_ptr<Command> MakeModelsCommand() { return std::make_unique<ModelsCommand>(); }

}  // namespace tool
