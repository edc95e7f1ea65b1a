#include "Command.h"

#include "VirtualBoard.h"
#include "commands/Commands.h"

namespace tool {
namespace {

std::string TextOf(Touches touches) {
  switch (touches) {
    case Touches::kNothing:
      return "Does not touch the board.";
    case Touches::kReads:
      return "Only reads. Nothing on the board changes.";
    case Touches::kMayStart:
      return "Only reads. But --start WRITES REGISTERS: it sets up the FPGA and the image sensor "
             "from scratch. --dry-run shows what would be done and touches nothing.";
    case Touches::kSets:
      return "WRITES REGISTERS: starts the device (FPGA and image sensor are set up from scratch), "
             "then applies the setting. The next command that starts the device sets it up from "
             "scratch too, so the setting is gone: give \"capture\" and \"watch\" the same as an "
             "option, or keep it with \"tessaline recipe save\". Where \"tessaline serve\" has the "
             "sensor, the setting is made there and holds. --dry-run shows what would be "
             "done and touches nothing.";
    case Touches::kLight:
      return "DRIVES THE LASER and writes registers: protect your eyes. --dry-run shows what would "
             "be done and touches nothing.";
    case Touches::kRegisters:
      return "WRITES REGISTERS directly. --dry-run shows what would be written and writes nothing.";
    case Touches::kEeprom:
      return "WRITES THE EEPROM. --dry-run shows what would be written and writes nothing.";
  }
  return {};
}

bool CanBeRehearsed(Touches touches) { return touches >= Touches::kMayStart; }

std::string Footer(const About& about) {
  std::string footer = TextOf(about.touches);
  if (*about.details != '\0') footer += std::string("\n\n") + about.details;
  if (*about.examples != '\0') footer += std::string("\n\nExamples:\n") + about.examples;
  return footer;
}

CLI::App& Add(CLI::App& parent, const About& about) {
  CLI::App& command = *parent.add_subcommand(about.name, about.summary);
  command.footer(Footer(about));
  return command;
}

}  // namespace

void AddCommonOptions(CLI::App& app, CommonOptions& common) {
  app.add_option("--model", common.model,
                 "Model code of the product (or TESSALINE_MODEL); \"tessaline models\" lists them")
      ->type_name("CODE");
  app.add_option("--virtual", common.virtual_model, "Run on the virtual board of this model")
      ->type_name("CODE");
  app.add_option("--optics", common.optics,
                 "Optics of the virtual board: ideal, or a simulated head for each seed")
      ->type_name("ideal|real[:SEED]")
      ->check(WrongOptics);
  app.add_option("--scene", common.scene,
                 "What the virtual board sees: belt, or plane, sawtooth or stairs, each with "
                 ",x=MM,z=MM,tilt=DEGREES behind it if you like")
      ->type_name("SCENE")
      ->check(WrongScene);
  app.add_flag("--direct", common.direct,
               "Use the board itself, even while \"tessaline serve\" has the sensor");
  app.add_flag("--json", common.json, "Print the result as JSON");
  app.add_flag("-v,--verbose", common.verbose, "Show the library's output on standard error");
}

CLI::App& AddCommand(CLI::App& parent, const About& about, CommonOptions& common) {
  CLI::App& command = Add(parent, about);
  if (CanBeRehearsed(about.touches)) {
    command.add_flag("--dry-run", common.dry_run, "Show what would be done, and do nothing");
  }
  AddCommonOptions(command, common);
  return command;
}

CLI::App& AddGroup(CLI::App& parent, const About& about) {
  CLI::App& group = Add(parent, about);
  group.require_subcommand(1);
  return group;
}

CLI::Validator NumberIn(double low, double high) {
  const std::string range = fmt::format("{} - {}", low, high);
  return CLI::Validator(
      [=](const std::string& text) {
        double number = 0;
        const bool fits =
            CLI::detail::lexical_cast(text, number) && number >= low && number <= high;
        return fits ? std::string() : fmt::format("{} is not in the range {}", text, range);
      },
      high < kMostSeconds ? fmt::format("in [{}]", range) : "POSITIVE");
}

std::vector<std::unique_ptr<Command>> MakeCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  for (const auto make : kCommandMakers) commands.push_back(make());
  return commands;
}

}  // namespace tool
