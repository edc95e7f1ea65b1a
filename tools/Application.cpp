#include "Application.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <new>

#include "Failure.h"
#include "LibraryOutput.h"
#include "Printable.h"
#include "VirtualBoard.h"
#include "doc/Completion.h"
#include "doc/ManPages.h"

namespace tool {
namespace {

constexpr const char* kDescription = "Inspects, sets up and tests a laser line-profile sensor.";
constexpr const char* kFooter =
    "Runs on the sensor itself, or on any Linux machine with the virtual board: --virtual K3610,\n"
    "or TESSALINE_BOARD=K3610.\n\nExamples:\n"
    "  tessaline check --virtual K3610\n"
    "  tessaline capture strips -n 600 -o scan.png --virtual K3610\n"
    "  tessaline reg read TRIGGER_CTRL --virtual K3610\n"
    "\"tessaline COMMAND --help\" describes each command.";

// The sub-command as typed: "tessaline reg read".
std::string NameOf(const CLI::App& app) {
  std::string name = app.get_name();
  for (const CLI::App* sub : app.get_subcommands()) name += " " + NameOf(*sub);
  return name;
}

void Tell(const std::string& who, const Failure& failure) {
  const std::string next = failure.next().empty() ? "" : "; " + failure.next();
  fprintf(stderr, "%s\n", Printable(fmt::format("{}: {}{}", who, failure.what(), next)).c_str());
}

// The same for programs, unless they have their answer.
void EmitError(const Failure& failure) {
  if (Session::HasEmitted()) return;
  Json json;
  AddTo(json, failure);
  try {
    // On one line, because `watch` has written lines before.
    Session::Write(json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
  } catch (const Failure&) {  // standard output is what cannot be written
  }
}

}  // namespace

Application::Application(std::vector<std::unique_ptr<Command>> commands)
    : app_(kDescription, "tessaline"), commands_(std::move(commands)) {
  app_.footer(kFooter);
  app_.require_subcommand(0, 1);
  // For building the packages; not in the help.
  app_.add_option("--write-man-pages", man_)->group("");
  app_.add_flag("--write-completion", completion_)->group("");
  app_.set_version_flag("--version", "tessaline " TESSALINE_VERSION, "Print the version and exit");
  AddCommonOptions(app_, common_);
  for (const auto& command : commands_) command->Describe(app_, common_);
}

void Application::Parse(const std::function<void()>& parse) {
  try {
    parse();
  } catch (const CLI::Success& wanted) {  // --help
    app_.exit(wanted);
    if (!std::cout.flush()) {
      throw Failure(ExitCode::kFile, "cannot write to standard output", "send it elsewhere");
    }
    throw;
  } catch (const CLI::ParseError& error) {
    throw Failure(ExitCode::kUsage, error.what(), fmt::format("see \"{} --help\"", NameOf(app_)));
  }
}

ExitCode Application::Guarded(const std::function<ExitCode()>& run) {
  const auto end = [this](const Failure& failure) {
    Tell(NameOf(app_), failure);
    // A command inside another leaves the answer to that one, which has none to a wrong line.
    const bool answers = common_.json || (common_.quiet && failure.code() == ExitCode::kUsage);
    if (answers) EmitError(failure);
    return failure.code();
  };
  try {
    return run();
  } catch (const CLI::Success&) {
    return ExitCode::kOk;
  } catch (const Failure& failure) {
    return end(failure);
  } catch (const std::bad_alloc&) {  // caught, so that destructors switch the laser off
    return end(Failure(ExitCode::kFile, "out of memory", "capture less at a time"));
  } catch (const std::exception& error) {  // likewise
    return end(Failure(ExitCode::kFile, error.what()));
  }
}

ExitCode Application::Run(int argc, char** argv) {
  // The parser may give up before it has come to the option.
  common_.json = std::any_of(argv, argv + argc,
                             [](const char* word) { return std::string_view(word) == "--json"; });
  return Guarded([&] {
    Parse([&] { app_.parse(argc, argv); });
    if (!man_.empty()) return WriteManPages(app_, man_);
    if (completion_) return WriteCompletion(app_);
    for (const auto& command : commands_) {
      if (command->Asked()) command->HandOver(argv);
    }
    PlugInVirtualBoard({common_.virtual_model, common_.optics, common_.scene}, argv);
    LibraryOutput::Instance().Capture(common_.verbose);
    Session session(common_);
    session.CompareBoard();
    return Carry(session);
  });
}

ExitCode Application::RunNested(std::vector<std::string> arguments, const CommonOptions& outer) {
  Application inner;
  inner.common_ = outer;
  inner.common_.json = false;
  inner.common_.quiet = outer.json;
  return inner.Guarded([&] {
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    inner.Parse([&] { inner.app_.parse(arguments); });
    inner.common_.json = false;
    inner.common_.quiet = outer.json;
    Session session(inner.common_);
    return inner.Carry(session);
  });
}

ExitCode Application::Carry(Session& session) {
  for (const auto& command : commands_) {
    if (command->Asked()) return command->Run(session);
  }
  throw Failure(ExitCode::kUsage, "a sub-command is required", "see \"tessaline --help\"");
}

}  // namespace tool
