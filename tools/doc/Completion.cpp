#include "doc/Completion.h"

#include <fmt/core.h>

#include <cstdio>
#include <set>

#include "Models.h"
#include "tessaline/register_map.h"

namespace tool {
namespace {

constexpr const char* kScript =
    R"script(# bash completion for tessaline; written by "tessaline --write-completion".
_tessaline_words() {{
  case "$1" in
{cases}  esac
}}

_tessaline_arguments() {{
  case "$1" in
{arguments}    " reg read"|" reg write") echo "{registers}" ;;
    " models") echo "{models}" ;;
  esac
}}

_tessaline_files() {{
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
}}

_tessaline() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}} path="" word
  COMPREPLY=()
  case "$previous" in
    --model|--virtual) COMPREPLY=($(compgen -W "{models}" -- "$current")); return ;;
    -o|--output|--diff|--recipe) _tessaline_files "$current"; return ;;
{values}  esac
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do
    [[ $path != " trace" || " $(_tessaline_words "") " != *" $word "* || $word == -* ]] || path=""
    case " $(_tessaline_words "$path") " in
      *" $word "*) [[ $word == -* ]] || path="$path $word" ;;
    esac
  done
  local words
  words="$(_tessaline_words "$path") $(_tessaline_arguments "$path")"
  case "$path" in
    " trace") words="$words $(_tessaline_words "")" ;;
    " eeprom load"|" eeprom verify"|" recipe "*) [[ $current == -* ]] || _tessaline_files "$current" ;;
  esac
  COMPREPLY+=($(compgen -W "$words" -- "$current"))
}}
complete -F _tessaline tessaline
)script";

struct Choice {
  const char* option;
  const char* words;
};

constexpr const char* kColours = "off red green yellow blue magenta cyan white";
constexpr Choice kChoices[]{{"--format", "csv npy ply png pgm raw"},
                            {"--trigger|--mode", "timer encoder external timer-start"},
                            {"--laser|--door", "on off"},
                            {"--led", kColours}};
constexpr Choice kArguments[]{
    {" capture", "strips images"}, {" laser", "on off status"}, {" led", kColours}};

// What may follow a path of sub-commands, one case of the script for each.
std::string Cases(const CLI::App& app, const std::string& path) {
  std::string words;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;
    for (const std::string& name : option->get_snames()) words += " -" + name;
    for (const std::string& name : option->get_lnames()) words += " --" + name;
  }
  const auto subcommands = app.get_subcommands([](const CLI::App*) { return true; });
  for (const CLI::App* sub : subcommands) words += " " + sub->get_name();
  std::string cases = fmt::format("    \"{}\") echo \"{}\" ;;\n", path, words.substr(1));
  for (const CLI::App* sub : subcommands) cases += Cases(*sub, path + " " + sub->get_name());
  return cases;
}

}  // namespace

ExitCode WriteCompletion(const CLI::App& app) {
  std::string models;
  for (const Family& family : products::kFamilies) models += fmt::format(" {}", family.codes);
  std::set<std::string_view> names;
  for (const auto& reg : VeltranoSDK::fpga::kAllRegisters) names.insert(reg.name.View());
  std::string registers;
  for (const std::string_view name : names) registers += fmt::format(" {}", name);
  std::string values;
  for (const Choice& choice : kChoices) {
    values += fmt::format("    {}) COMPREPLY=($(compgen -W \"{}\" -- \"$current\")); return ;;\n",
                          choice.option, choice.words);
  }
  std::string arguments;
  for (const Choice& choice : kArguments) {
    arguments += fmt::format("    \"{}\") echo \"{}\" ;;\n", choice.option, choice.words);
  }
  const std::string script =
      fmt::format(kScript, fmt::arg("cases", Cases(app, "")), fmt::arg("models", models.substr(1)),
                  fmt::arg("arguments", arguments), fmt::arg("values", values),
                  fmt::arg("registers", registers.substr(1)));
  fputs(script.c_str(), stdout);
  return ExitCode::kOk;
}

}  // namespace tool
