#include <fmt/format.h>

#include "Acquisition.h"
#include "Failure.h"
#include "OutputFile.h"
#include "Plan.h"
#include "RecipeFile.h"
#include "RecipeText.h"
#include "commands/Commands.h"

namespace tool {
namespace {

constexpr About kRecipeAbout{
    "recipe", "Keeps settings in a file, shows, compares and makes them", Touches::kSets,
    "A recipe is a JSON file. \"capture\" and \"watch\" take it with --recipe; their options come "
    "first.",
    "  tessaline recipe save front.json --exposure 200 --model K3610\n"
    "  tessaline capture strips -n 600 -o scan.png --recipe front.json --model K3610"};
constexpr About kSaveAbout{
    "save", "Writes the settings of the options into a file", Touches::kNothing,
    "What no option gives is left out, and has its default when the recipe is used. With --model "
    "the recipe is for that model alone (--family: for all of its family), and the model must have "
    "all settings. \"-\" writes to standard output.",
    "  tessaline recipe save front.json --exposure 200 --gain 6 --model K3610\n"
    "  tessaline recipe save dim.json --recipe front.json --power 20"};
constexpr About kShowAbout{"show", "Shows the settings of a recipe", Touches::kNothing,
                           "Also those that it leaves out, with their defaults.",
                           "  tessaline recipe show front.json"};
constexpr About kDiffAbout{
    "diff", "Shows in which settings two recipes differ", Touches::kNothing,
    "Exit status 1 when they do. A setting that is left out counts as its default.",
    "  tessaline recipe diff front.json dim.json"};
constexpr About kApplyAbout{"apply", "Makes the settings of a recipe", Touches::kSets,
                            "The laser stays off: \"laser\" in a recipe is about capturing.",
                            "  tessaline recipe apply front.json --dry-run --model K3610"};

std::string TextOf(const std::optional<Region>& region, std::string_view) {
  return region ? region->AsText() : "";
}

std::string TextOf(const std::optional<std::vector<unsigned>>& numbers, std::string_view unit) {
  return numbers ? fmt::format("{} {}", fmt::join(*numbers, ", "), unit) : "";
}

template <typename T>
std::string TextOf(const std::optional<T>& value, std::string_view unit) {
  if (!value) return "";
  return fmt::format("{}{}{}", *value, unit.empty() ? "" : " ", unit);
}

// A setting of a recipe for people.
template <typename T>
std::string TextOf(const Recipe& recipe, const Setting& setting, T member) {
  const std::string text = TextOf(recipe.*member, UnitOf(setting, recipe));
  if (!text.empty()) return text;
  const bool of_model = setting.key == setting::kSpacing.key || setting.key == setting::kRegion.key;
  return of_model ? "that of the model" : "as after a start";
}

std::string ModelText(const std::string& model) {
  if (model.empty()) return "any model";
  return Model(model).known() ? model : model + "..";
}

class RecipeCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &AddGroup(parent, kRecipeAbout);
    save_ = &AddRecipeCommand(kSaveAbout, common);
    save_->add_flag("--force", force_, "Overwrite the file if it exists");
    save_->add_flag("--family", family_, "For the whole family of the model");
    acquisition_.Describe(*save_);
    show_ = &AddRecipeCommand(kShowAbout, common);
    diff_ = &AddRecipeCommand(kDiffAbout, common);
    diff_->add_option("other", other_, "Recipe to compare with")->type_name("FILE")->required();
    AddRecipeCommand(kApplyAbout, common);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    if (save_->parsed()) return Save(session);
    if (show_->parsed()) return Show(session);
    if (diff_->parsed()) return Diff(session);
    return Apply(session);
  }

 private:
  CLI::App& AddRecipeCommand(const About& about, CommonOptions& common) {
    CLI::App& command = AddCommand(*app_, about, common);
    command.add_option("file", file_, "Recipe")->type_name("FILE")->required();
    return command;
  }

  static Recipe Read(const Session& session, const std::string& path) {
    return session.has_model() ? ReadRecipe(path, session.model()) : ReadRecipe(path);
  }

  ExitCode Save(Session& session) {
    acquisition_.Settle(session, session.has_model() ? &session.model() : nullptr);
    Recipe recipe = acquisition_.recipe();
    if (session.has_model()) {
      const Model& model = session.model();
      recipe.model = family_ ? model.family().prefix : model.code();
      RequireItself(recipe);
    } else if (family_) {
      throw Failure(ExitCode::kUsage, "--family needs a model", "add --model CODE");
    }
    if (IsStandardOutput(file_)) LibraryOutput::Instance().KeepUserForData();
    const std::string text = AsText(recipe);
    WholeFile(file_, MayOverwrite(file_, force_))
        .Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    Session::LeaveOutBoard();
    session.Print("wrote the recipe for {} to {}\n", ModelText(recipe.model), file_);
    session.Emit({{"file", file_}, {"model", recipe.model}});
    return ExitCode::kOk;
  }

  ExitCode Show(Session& session) const {
    const Recipe recipe = Read(session, file_);
    const Model its_own(recipe.model);
    const bool known = session.has_model() || its_own.known();
    const Recipe full =
        known ? WithDefaults(recipe, session.has_model() ? session.model() : its_own, false)
              : Over(recipe, Defaults());
    Session::LeaveOutBoard();
    session.Print("{}, for {}\n", file_, ModelText(recipe.model));
    Json json{{"file", file_}, {"model", recipe.model}, {"settings", Json::object()}};
    json["defaults"] = Json::array();
    ForEachSetting([&](const Setting& setting, auto member) {
      const bool given = (recipe.*member).has_value();
      session.Print("  {:<16} {}{}\n", setting.name, TextOf(full, setting, member),
                    given ? "" : " (default)");
      json["settings"][std::string(setting.key)] = ValueOf(full.*member);
      if (!given) json["defaults"].push_back(setting.key);
    });
    session.Emit(json);
    return ExitCode::kOk;
  }

  ExitCode Diff(Session& session) const {
    const Recipe one = Over(Read(session, file_), Defaults());
    const Recipe other = Over(Read(session, other_), Defaults());
    Session::LeaveOutBoard();
    Json differences = Json::array();
    const auto tell = [&](std::string_view name, const std::string& text,
                          const std::string& other_text, Json difference) {
      if (differences.empty()) session.Print("  {:<16} {:<24} {}\n", "", file_, other_);
      session.Print("  {:<16} {:<24} {}\n", name, text, other_text);
      differences.push_back(std::move(difference));
    };
    if (one.model != other.model) {
      tell("model", ModelText(one.model), ModelText(other.model),
           {{"key", "model"}, {"one", one.model}, {"other", other.model}});
    }
    ForEachSetting([&](const Setting& setting, auto member) {
      if (one.*member == other.*member) return;
      tell(
          setting.name, TextOf(one, setting, member), TextOf(other, setting, member),
          {{"key", setting.key}, {"one", ValueOf(one.*member)}, {"other", ValueOf(other.*member)}});
    });
    if (differences.empty()) session.Print("the same settings\n");
    session.Emit({{"files", {file_, other_}}, {"differences", differences}});
    return differences.empty() ? ExitCode::kOk : ExitCode::kNegative;
  }

  ExitCode Apply(Session& session) const {
    const Model& model = session.model();
    Plan plan(session, "recipe apply");
    const Recipe recipe = ReadRecipe(file_, model);
    plan.Add(recipe, session.live() == nullptr ? StepsAfterStart(recipe, model, /*images=*/false)
                                               : StepsOf(recipe, model));
    plan.CarryOut();
    return ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  CLI::App* save_ = nullptr;
  CLI::App* show_ = nullptr;
  CLI::App* diff_ = nullptr;
  std::string file_;
  std::string other_;
  bool force_ = false;
  bool family_ = false;
  Acquisition acquisition_;
};

}  // namespace

std::unique_ptr<Command> MakeRecipeCommand() { return std::make_unique<RecipeCommand>(); }

}  // namespace tool
