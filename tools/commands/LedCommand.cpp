#include <array>

#include "Failure.h"
#include "Plan.h"
#include "commands/Commands.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr About kLedAbout{"led", "Sets the colour of the status light", Touches::kSets, "",
                          "  tessaline led green --model K3610\n  tessaline led off --model K3610"};

struct Colour {
  const char* name;
  unsigned value;  // sum of 1 red, 2 green, 4 blue
};

constexpr std::array kColours{Colour{"off", 0},    Colour{"red", 1},  Colour{"green", 2},
                              Colour{"yellow", 3}, Colour{"blue", 4}, Colour{"magenta", 5},
                              Colour{"cyan", 6},   Colour{"white", 7}};

class LedCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddCommand(parent, kLedAbout, common);
    std::vector<std::string> names;
    for (const Colour& colour : kColours) names.emplace_back(colour.name);
    app_->add_option("colour", colour_, "off, red, green, yellow, blue, magenta, cyan or white")
        ->check(CLI::IsMember(names))
        ->type_name("COLOUR")
        ->required();
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    unsigned value = 0;
    for (const Colour& colour : kColours) {
      if (colour_ == colour.name) value = colour.value;
    }
    Plan plan(session, "led " + colour_);
    plan.Add(fmt::format("LedControl({})", value), "status light " + colour_,
             [value] { return LedControl(value) == 0; });
    plan.CarryOut();
    return ExitCode::kOk;
  }

 private:
  CLI::App* app_ = nullptr;
  std::string colour_;
};

}  // namespace

std::unique_ptr<Command> MakeLedCommand() { return std::make_unique<LedCommand>(); }

}  // namespace tool
