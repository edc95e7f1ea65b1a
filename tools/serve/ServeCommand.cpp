#include "serve/ServeCommand.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "Failure.h"
#include "Interrupt.h"
#include "LibraryOutput.h"
#include "live/LiveSocket.h"
#include "serve/Daemon.h"
#include "serve/ServeOptions.h"
#include "watch/Terminal.h"

namespace tool::serve {
namespace {

constexpr rlim_t kMostFiles = 4096;

// Writes the token where only this user can read it.
void KeepToken(const std::string& token, const std::string& path) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  unlink(path.c_str());
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  const std::string line = token + '\n';
  const bool written =
      file >= 0 && write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  if (file >= 0) close(file);
  if (!written) {
    throw Failure(ExitCode::kFile, fmt::format("cannot write the token to {}", path),
                  "give a token of your own with --token-file");
  }
}

class ServeCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &options_.Describe(parent, common);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    session.BecomeDaemon();
    const Model& model = session.model();
    if (options_.guard) {
      LaserGuard::Watch(model);
      return ExitCode::kOk;
    }
    if (options_.address == "localhost") options_.address = "127.0.0.1";
    Check(Place{options_.address, options_.port, options_.certificate, options_.key});
    options_.acquisition.Settle(session, &model);
    if (session.options().dry_run) {
      options_.acquisition.Rehearse(session, "serve", /*images=*/false, {});
      return ExitCode::kOk;
    }
    return Serve(session);
  }

 private:
  void Check(const Place& place) const {
    if (!place.IsLoopback() && options_.token_file.empty()) {
      throw Failure(
          ExitCode::kUsage,
          fmt::format("{} can be reached from other machines, so it needs a token", place.address),
          "give one with --token-file");
    }
    if (place.certificate.empty() != place.key.empty()) {
      throw Failure(ExitCode::kUsage, "--certificate and --key go together");
    }
  }

  ExitCode Serve(Session& session) {
    Daemon::Settings settings;
    settings.place = {options_.address, options_.port, options_.certificate, options_.key};
    settings.hosts = {options_.hosts.begin(), options_.hosts.end()};
    settings.socket = live::SocketPath();
    settings.recordings = options_.recordings;
    settings.recipe = options_.acquisition.recipe();
    // Nobody's eyes are in danger there.
    if (!settings.recipe.laser && session.on_virtual_board()) settings.recipe.laser = "on";
    // Clients cost descriptors, and the sensor needs some.
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
      files.rlim_cur = std::min<rlim_t>(files.rlim_max, kMostFiles);
      setrlimit(RLIMIT_NOFILE, &files);
    }
    settings.token = options_.token_file.empty() ? NewToken() : ReadToken(options_.token_file);
    // It runs to the end of the process, as the library's threads do.
    static auto* const daemon = new Daemon(session, options_.measuring, settings);
    std::string token_file = options_.token_file;
    if (token_file.empty()) {
      token_file = settings.socket + ".token";
      KeepToken(settings.token, token_file);
    }
    daemon->Start();
    Tell(session, *daemon, settings, token_file);
    daemon->Run();
    daemon->Stop();
    if (options_.token_file.empty()) unlink(token_file.c_str());
    return ExitCode::kOk;  // a signal is the normal end
  }

  void Tell(const Session& session, const Daemon& daemon, const Daemon::Settings& settings,
            const std::string& token_file) const {
    // On a terminal somebody wants to click; in a log, a secret has no place.
    FILE* const user = LibraryOutput::Instance().user();
    const bool show = user != nullptr && IsScreen(fileno(user)) && options_.token_file.empty();
    session.Print("serving the {} at {}{}\n", session.model().code(), daemon.Url(),
                  show ? "#token=" + settings.token : "");
    session.Print("the token is in {}; the other commands use {}\n", token_file, settings.socket);
    session.EmitLine({{"url", daemon.Url()},
                      {"socket", settings.socket},
                      {"token_file", token_file},
                      {"pid", getpid()}});
    if (!settings.place.IsLoopback() && settings.place.certificate.empty()) {
      session.Note("without --certificate the token crosses the network unencrypted");
    }
  }

  CLI::App* app_ = nullptr;
  ServeOptions options_;
};

}  // namespace

std::unique_ptr<Command> MakeServeCommand() { return std::make_unique<ServeCommand>(); }

}  // namespace tool::serve
