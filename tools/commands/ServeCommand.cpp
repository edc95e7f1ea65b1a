#include <unistd.h>

#include <filesystem>

#include "Failure.h"
#include "commands/Commands.h"
#include "serve/ServeOptions.h"

namespace tool {
namespace {

// Hands over to the program that serves, which is in a package of its own.
class ServeCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &options_.Describe(parent, common);
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
  serve::ServeOptions options_;
  std::string program_;
};

}  // namespace

std::unique_ptr<Command> MakeServeCommand() { return std::make_unique<ServeCommand>(); }

}  // namespace tool
