#include "doc/ManPages.h"

#include <fmt/core.h>

#include <sstream>

#include "OutputFile.h"

namespace tool {
namespace {

// Escapes text for troff: no command at the start of a line, no lost backslash.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool begin = i == 0 || text[i - 1] == '\n';
    if (begin && (text[i] == '.' || text[i] == '\'')) escaped += "\\&";
    if (text[i] == '\\')
      escaped += "\\e";
    else if (text[i] == '-')
      escaped += "\\-";
    else
      escaped += text[i];
  }
  return escaped;
}

// Keeps paragraphs; lines that begin with blanks stay separate lines.
std::string Paragraphs(const std::string& text) {
  std::string page;
  std::istringstream lines(text);
  bool as_typed = false;
  for (std::string line; std::getline(lines, line);) {
    const bool example = line.starts_with("  ");
    if (example != as_typed) page += example ? ".nf\n" : ".fi\n";
    as_typed = example;
    page += line.empty() ? std::string(".PP\n") : Escaped(line) + '\n';
  }
  return as_typed ? page + ".fi\n" : page;
}

std::string Options(const CLI::App& app) {
  std::string page;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;
    const bool positional = option->get_positional();
    const std::string type = positional && option->get_items_expected_max() == 0 ? ""
                             : option->get_type_size() == 0                      ? ""
                                                            : option->get_type_name();
    const std::string name = option->get_name(positional, !positional);
    page += fmt::format(".TP\n\\fB{}\\fR{}{}\n{}{}\n", Escaped(name), type.empty() ? "" : " ",
                        Escaped(positional ? "" : type), Escaped(option->get_description()),
                        option->get_default_str().empty()
                            ? ""
                            : fmt::format(" (otherwise {})", Escaped(option->get_default_str())));
  }
  return page;
}

std::string ExitStatus() {
  std::string page = ".SH EXIT STATUS\n";
  for (const ExitCodeText& text : kExitCodes) {
    page += fmt::format(".TP\n.B {}\n{}\n", static_cast<int>(text.code),
                        Escaped(std::string(text.text)));
  }
  return page;
}

std::string Environment() {
  return ".SH ENVIRONMENT\n.TP\n.B TESSALINE_MODEL\nModel code, used when \\-\\-model is not "
         "given.\n"
         ".TP\n.B TESSALINE_BOARD\nModel code of the virtual board to run on, used when "
         "\\-\\-virtual is not given.\n";
}

void WritePage(const CLI::App& app, const std::string& name, const std::string& directory) {
  std::string file_name = name;
  for (char& c : file_name) c = c == ' ' ? '-' : c;
  std::string page = fmt::format(
      ".TH \"{}\" 1 \"\" \"libtessaline\" \"Sensor tools\"\n.SH NAME\n{} \\- {}\n.SH SYNOPSIS\n.B "
      "{}\n",
      Escaped(file_name), Escaped(file_name), Escaped(app.get_description()), Escaped(name));
  const auto subcommands = app.get_subcommands([](const CLI::App*) { return true; });
  page += subcommands.empty() ? "[\\fIOPTIONS\\fR]" : "[\\fIOPTIONS\\fR] \\fICOMMAND\\fR";
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional()) page += fmt::format(" [\\fI{}\\fR]", Escaped(option->get_name()));
  }
  page += "\n.SH DESCRIPTION\n" + Paragraphs(app.get_footer());
  page += ".SH OPTIONS\n" + Options(app);
  if (!subcommands.empty()) {
    page += ".SH COMMANDS\n";
    for (const CLI::App* sub : subcommands) {
      page += fmt::format(".TP\n\\fB{}\\fR\n{}. See \\fB{}\\-{}\\fR(1).\n", sub->get_name(),
                          Escaped(sub->get_description()), Escaped(file_name), sub->get_name());
    }
  }
  page += ExitStatus() + Environment();
  WriteWholeFile(fmt::format("{}/{}.1", directory, file_name), /*force=*/true,
                 {reinterpret_cast<const std::uint8_t*>(page.data()), page.size()});
  for (const CLI::App* sub : subcommands) WritePage(*sub, name + " " + sub->get_name(), directory);
}

}  // namespace

ExitCode WriteManPages(const CLI::App& app, const std::string& directory) {
  WritePage(app, app.get_name(), directory);
  return ExitCode::kOk;
}

}  // namespace tool
