#include <unistd.h>

#include <filesystem>

#include "Failure.h"
#include "commands/Commands.h"
#include "fleet/FleetOptions.h"
#include "fleet/PublishOptions.h"
#include "fleet/SubscribeOptions.h"
#include "serve/ServeOptions.h"

namespace tool {
namespace {

// Another program of ours, in a package of its own, because of the libraries that it takes.
struct OtherProgram {
  const char* name;
  const char* advice;
};
constexpr OtherProgram kServeProgram{
    "tessaline-serve", "install the package tessaline-serve; a build makes it where npm is"};
constexpr OtherProgram kFleetProgram{
    "tessaline-fleet", "install the package tessaline-fleet; a build makes it where libnats is"};

// A command that it carries out. `Options` describe the command line for both.
template <typename Options>
class HandedOver : public Command {
 public:
  explicit HandedOver(const OtherProgram& program) : program_(program) {}

  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &options_.Describe(parent, common);
  }
  bool Asked() const override { return app_->parsed(); }

  void HandOver(char** argv) override {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    path_ = self.parent_path() / program_.name;
    execv(path_.c_str(), argv);
  }

  ExitCode Run(Session&) override {
    throw Failure(ExitCode::kFile, fmt::format("{} is not there", path_), program_.advice);
  }

 private:
  const OtherProgram& program_;
  CLI::App* app_ = nullptr;
  Options options_;
  std::string path_;
};

}  // namespace

std::unique_ptr<Command> MakeServeCommand() {
  return std::make_unique<HandedOver<serve::ServeOptions>>(kServeProgram);
}
std::unique_ptr<Command> MakePublishCommand() {
  return std::make_unique<HandedOver<fleet::PublishOptions>>(kFleetProgram);
}
std::unique_ptr<Command> MakeSubscribeCommand() {
  return std::make_unique<HandedOver<fleet::SubscribeOptions>>(kFleetProgram);
}
std::unique_ptr<Command> MakeFleetCommand() {
  return std::make_unique<HandedOver<fleet::FleetOptions>>(kFleetProgram);
}

}  // namespace tool
