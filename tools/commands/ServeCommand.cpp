#include <unistd.h>

#include <filesystem>
#include <string>

#include "Failure.h"
#include "commands/Commands.h"
#include "serve/About.h"

namespace tool {
namespace {

// Hands over to the program that serves, which is in a package of its own.
class ServeCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions&) override {
    app_ = parent.add_subcommand(serve::kServeAbout.name, serve::kServeAbout.summary);
    app_->prefix_command();
    app_->set_help_flag();
    app_->footer("tessaline serve --help shows the options.");
  }
  bool Asked() const override { return app_->parsed(); }

  void HandOver(char** argv) override {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    program_ = self.parent_path() / "tessaline-serve";
    execv(program_.c_str(), argv);
  }

  ExitCode Run(Session&) override {
    throw Failure(ExitCode::kFile, fmt::format("{} is not there", program_),
                  "install the package tessaline-serve; a build makes it where npm is");
  }

 private:
  CLI::App* app_ = nullptr;
  std::string program_;
};

}  // namespace

std::unique_ptr<Command> MakeServeCommand() { return std::make_unique<ServeCommand>(); }

}  // namespace tool
