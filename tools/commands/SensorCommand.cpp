#include "Failure.h"
#include "SensorTables.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kSensorAbout{"sensor", "Shows the image sensors' register tables",
                             Touches::kNothing, "", "  tessaline sensor tables"};
constexpr About kTablesAbout{
    "tables", "Lists the register tables of this build and their placeholders", Touches::kNothing,
    "A placeholder marks an entry that only the chip maker's documents define. "
    "docs/sensor-tables.md explains how to supply your own table.",
    "  tessaline sensor tables\n  tessaline sensor tables --json"};

class SensorCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddGroup(parent, kSensorAbout);
    AddCommand(*app_, kTablesAbout, common);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Json list = Json::array();
    Session::LeaveOutBoard();
    std::size_t missing = 0;
    session.Print("{:<16}{:<26}{:<23}{:>8}{:>14}\n", "SENSOR", "HEADER", "TABLE", "ENTRIES",
                  "PLACEHOLDERS");
    for (const SensorTable& table : SensorTables()) {
      session.Print("{:<16}{:<26}{:<23}{:>8}{:>14}\n", table.sensor, table.header, table.name,
                    table.entries, table.placeholders);
      missing += table.placeholders;
      list.push_back({{"sensor", table.sensor},
                      {"header", table.header},
                      {"table", table.name},
                      {"entries", table.entries},
                      {"placeholders", table.placeholders}});
    }
    session.Print("The IMX273 needs no table. {} entries wait for the makers' documents.\n",
                  missing);
    session.Emit(list);
    return ExitCode::kOk;
  }

 private:
  CLI::App* app_ = nullptr;
};

}  // namespace

std::unique_ptr<Command> MakeSensorCommand() { return std::make_unique<SensorCommand>(); }

}  // namespace tool
