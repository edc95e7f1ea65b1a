#include "Options.h"

#include <fmt/core.h>

#include <cstdlib>

#include "tessaline/products.h"

namespace runner {
namespace {

constexpr const char* kVersion = "tessaline-board " TESSALINE_VERSION;
constexpr const char* kUsualModel = "K3610";
constexpr const char* kDetails =
    "The exit status is that of PROGRAM, 128 and more for a signal that ended it; 2 if the command "
    "line is wrong or the board is not installed; 126 if PROGRAM cannot be run, or would run "
    "without the board; 127 if it is not found.\n\n"
    "Examples:\n"
    "tessaline-board run --model K3920 -- ./my-application\n"
    "tessaline-board run --state boards/line-3 -- bash";

// An option that sets one of the board's variables.
struct SettingOption {
  const char* name;
  const char* variable;
  const char* type;
  const char* text;
};
constexpr std::array kSettings{
    SettingOption{"--pace", "TESSALINE_BOARD_PACE", "real|free",
                  "Real: timed triggers come on time, and a frame without a free buffer is lost. "
                  "Free: a trigger comes whenever a buffer is free, and none is lost"},
    SettingOption{"--sleep", "TESSALINE_BOARD_SLEEP", "FACTOR",
                  "Scales every sleep of the program; 0 skips them"},
    SettingOption{"--strips", "TESSALINE_BOARD_STRIPS", "N", "Strips per strip buffer (10)"},
    SettingOption{"--optics", "TESSALINE_BOARD_OPTICS", "ideal|real[:SEED]",
                  "Ideal (linear and exact), or a simulated head for each seed"},
    SettingOption{"--scene", "TESSALINE_BOARD_SCENE", "SCENE",
                  "What the board sees: belt, or plane, sawtooth or stairs, each with "
                  ",x=MM,z=MM,tilt=DEGREES behind it if you like"},
    SettingOption{"--faults", "TESSALINE_BOARD_FAULTS", "LIST",
                  "Faults to plant at power-up, or @FILE to read them from a file"},
};

std::string WrongModel(const std::string& code) {
  if (VeltranoSDK::products::FindProduct(code) != nullptr) return {};
  return fmt::format("there is no board of model \"{}\"; model codes start with K36 to K40", code);
}

CLI::Validator CheckOf(std::string_view option) {
  if (option == "--pace") return CLI::IsMember({"real", "free"});
  if (option == "--sleep") return CLI::NonNegativeNumber;
  if (option == "--strips") return CLI::PositiveNumber;
  return {};
}

}  // namespace

Options::Options() {
  app_.name("tessaline-board");
  app_.set_version_flag("--version", kVersion);
  app_.require_subcommand(1);
  run_ = app_.add_subcommand("run", "Runs a program on the board");
  DescribeRun();
}

void Options::DescribeRun() {
  model_ = std::getenv("TESSALINE_BOARD") != nullptr ? std::getenv("TESSALINE_BOARD") : "";
  if (model_.empty()) model_ = kUsualModel;
  run_->add_option("--model", model_,
                   "Model code of the board (TESSALINE_BOARD, or K3610), such as K4010arm_rebuild")
      ->type_name("CODE");
  settings_.reserve(kSettings.size());
  for (const SettingOption& setting : kSettings) {
    std::string& value = settings_.emplace_back(Setting{setting.variable, {}}).value;
    run_->add_option(setting.name, value, setting.text)
        ->check(CheckOf(setting.name))
        ->type_name(setting.type);
  }
  run_->add_option("--transcript", transcript_,
                   "File for everything that crossed the system-call surface; JSON lines if its "
                   "name ends in .json. Programs that PROGRAM starts write files beside it")
      ->type_name("FILE");
  run_->add_option("--state", state_, "Folder for what a board keeps without power")
      ->type_name("FOLDER");
  run_->add_flag("--private", private_, "Each program has a board of its own");
  run_->add_flag("--strict", strict_,
                 "Programs that PROGRAM starts, too, must have the board: others are not run");
  run_->add_option("PROGRAM", program_, "Program to run, and its arguments")->type_name("");
  run_->footer(kDetails);
}

void Options::Parse(int argc, const char* const* argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  // Everything from the program on is the program's.
  auto end = words.begin();
  std::vector<std::string> program;
  if (end != words.end() && *end == "run") {
    ++end;
    while (end != words.end() && end->starts_with('-') && *end != "--") {
      const CLI::Option* const option = run_->get_option_no_throw(*end);
      const bool takes_next = option != nullptr && option->get_items_expected_max() > 0;
      ++end;
      if (takes_next && end != words.end()) ++end;
    }
    auto first = end;
    if (first != words.end() && *first == "--") ++first;
    program.assign(first, words.end());
  } else if (end == words.end() || !end->starts_with('-')) {
    throw CLI::ValidationError(
        end == words.end() ? "no command given" : fmt::format("there is no command \"{}\"", *end));
  } else {
    end = words.end();
  }
  app_.parse(std::vector<std::string>(std::make_reverse_iterator(end), words.rend()));
  program_ = std::move(program);
  if (program_.empty()) throw CLI::ValidationError("which program?");
  if (const std::string wrong = WrongModel(model_); !wrong.empty()) {
    throw CLI::ValidationError(wrong);
  }
}

int Options::Explain(const CLI::ParseError& error) const {
  if (error.get_exit_code() == 0) return app_.exit(error);
  const char* const help = run_->parsed() ? "tessaline-board run --help" : "tessaline-board --help";
  fmt::print(stderr, "tessaline-board: {} (see {})\n", error.what(), help);
  constexpr int kUsage = 2;
  return kUsage;
}

}  // namespace runner
