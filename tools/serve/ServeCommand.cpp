#include "serve/ServeCommand.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "Acquisition.h"
#include "Failure.h"
#include "Interrupt.h"
#include "LibraryOutput.h"
#include "Measuring.h"
#include "live/LiveSocket.h"
#include "serve/About.h"
#include "serve/Daemon.h"
#include "watch/Terminal.h"

namespace tool::serve {
namespace {

constexpr unsigned short kUsualPort = 8080;

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
    app_ = &AddCommand(parent, kServeAbout, common);
    app_->add_option("--listen", place_.address, "Address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app_->add_option("--port", place_.port, "Port to listen on; 0: any that is free")
        ->type_name("PORT")
        ->capture_default_str();
    app_->add_option("--token-file", token_file_,
                     "File with the token that allows to write (default: a new one)")
        ->type_name("FILE");
    app_->add_option("--certificate", place_.certificate, "Certificate for TLS, a PEM file")
        ->type_name("FILE");
    app_->add_option("--key", place_.key, "Its private key, a PEM file")->type_name("FILE");
    app_->add_option("--host", hosts_,
                     "A name by which browsers reach the daemon, besides its addresses")
        ->type_name("NAME");
    app_->add_option("--recordings", recordings_,
                     "Folder for recordings that are started from the page")
        ->type_name("FOLDER");
    // What the daemon starts beside itself; not in the help.
    app_->add_flag("--guard", guard_)->group("");
    acquisition_.Describe(*app_);
    measuring_.Describe(*app_);
    place_.port = kUsualPort;
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    const Model& model = session.model();
    if (guard_) {
      LaserGuard::Watch(std::string(model.code()));
      return ExitCode::kOk;
    }
    Check();
    acquisition_.Settle(session, &model);
    if (session.options().dry_run) {
      acquisition_.Rehearse(session, "serve", /*images=*/false, {});
      return ExitCode::kOk;
    }
    return Serve(session);
  }

 private:
  void Check() const {
    if (!place_.IsLoopback() && token_file_.empty()) {
      throw Failure(
          ExitCode::kUsage,
          fmt::format("{} can be reached from other machines, so it needs a token", place_.address),
          "give one with --token-file");
    }
    if (place_.certificate.empty() != place_.key.empty()) {
      throw Failure(ExitCode::kUsage, "--certificate and --key go together");
    }
  }

  ExitCode Serve(Session& session) {
    Daemon::Settings settings;
    settings.place = place_;
    settings.hosts = {hosts_.begin(), hosts_.end()};
    settings.socket = live::SocketPath();
    settings.recordings = recordings_;
    settings.recipe = acquisition_.recipe();
    // Nobody's eyes are in danger there.
    if (!settings.recipe.laser && session.on_virtual_board()) settings.recipe.laser = "on";
    settings.token = token_file_.empty() ? NewToken() : ReadToken(token_file_);
    // It runs to the end of the process, as the library's threads do.
    auto* const daemon = new Daemon(session, measuring_, settings);
    std::string token_file = token_file_;
    if (token_file.empty()) {
      token_file = std::filesystem::path(settings.socket).replace_filename("token");
      KeepToken(settings.token, token_file);
    }
    daemon->Start();
    Tell(session, *daemon, settings, token_file);
    daemon->Run();
    daemon->Stop();
    return ExitCode::kOk;  // a signal is the normal end
  }

  void Tell(const Session& session, const Daemon& daemon, const Daemon::Settings& settings,
            const std::string& token_file) const {
    // On a terminal somebody wants to click; in a log, a secret has no place.
    FILE* const user = LibraryOutput::Instance().user();
    const bool show = user != nullptr && IsScreen(fileno(user)) && token_file_.empty();
    session.Print("serving the {} at {}{}\n", session.model().code(), daemon.Url(),
                  show ? "#token=" + settings.token : "");
    session.Print("the token is in {}; the other commands use {}\n", token_file, settings.socket);
    session.EmitLine({{"url", daemon.Url()},
                      {"socket", settings.socket},
                      {"token_file", token_file},
                      {"pid", getpid()}});
    if (!place_.IsLoopback() && place_.certificate.empty()) {
      session.Note("without --certificate the token crosses the network unencrypted");
    }
  }

  CLI::App* app_ = nullptr;
  bool guard_ = false;
  Place place_;
  std::string token_file_;
  std::vector<std::string> hosts_;
  std::string recordings_;
  Acquisition acquisition_;
  MeasuringOptions measuring_;
};

}  // namespace

std::unique_ptr<Command> MakeServeCommand() { return std::make_unique<ServeCommand>(); }

}  // namespace tool::serve
