#include <chrono>
#include <cmath>

#include "Counted.h"
#include "Failure.h"
#include "Interrupt.h"
#include "RecipeText.h"
#include "Temperature.h"
#include "fleet/Commands.h"
#include "fleet/PublishOptions.h"
#include "fleet/Publisher.h"
#include "record/SensorName.h"
#include "watch/Terminal.h"

namespace tool::fleet {
namespace {

constexpr std::chrono::milliseconds kSlice{2};
constexpr std::chrono::milliseconds kShowEvery{500};
constexpr double kMegabyte = 1e6;

class PublishCommand : public Command, private RecordTaker {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &options_.Describe(parent, common);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    RecordSource& source = options_.source;
    if (source.TakesFrames(session)) return source.TakeFrames(session);
    RequireSensorName(options_.name);
    if (!options_.url.empty()) options_.server.urls = options_.url;
    options_.server.Urls();
    source.Check(session);
    if (session.options().dry_run) {
      source.Rehearse(session, "publish", {});
      return ExitCode::kOk;
    }
    Connect(session);
    start_ = Clock::now();
    const RecordSource::End end = source.Run(session, *this, kSlice);
    Show(/*last=*/true);
    return Report(session, end);
  }

 private:
  using Clock = std::chrono::steady_clock;

  void Connect(Session& session) {
    // The threads that begin here would end the process by a signal that is the application's.
    const SignalsBlocked blocked;
    // Both live to the end of the process, as the client library's threads do.
    server_ = new Server(options_.server, Role::kSensor, options_.name, Server::Absent::kWait);
    if (!server_->IsConnected()) {
      session.Note("{} cannot be reached yet; frames wait until it can", server_->Where());
    }
    publisher_ = new Publisher(*server_, SettingsFor(session));
  }

  Publisher::Settings SettingsFor(Session& session) {
    Publisher::Settings settings;
    settings.stream = {options_.name, options_.place.replicas, options_.place.MostBytes()};
    settings.backlog = {std::uint64_t{options_.source.megabytes()} << 20, options_.store,
                        static_cast<std::uint64_t>(options_.store_megabytes * kMegabyte),
                        options_.drop == "oldest"};
    settings.drain = std::chrono::milliseconds(std::llround(options_.drain_seconds * 1e3));
    settings.facts = {{"publisher", "tessaline " TESSALINE_VERSION}};
    if (session.has_model() || !options_.source.has_application()) {
      settings.facts["model"] = session.model().code();
      settings.health = [&session]() -> Json {
        const auto degrees = ProcessorTemperature(session.model().family());
        return {{"processor_temperature", degrees ? Json(*degrees) : Json()}};
      };
    }
    session.MarkVirtual(settings.facts);
    if (options_.source.has_application()) {
      settings.facts["application"] = options_.source.application();
    } else {
      settings.facts["recipe"] = Json::parse(AsText(options_.source.recipe()));
    }
    settings.order = [this, &session](const std::string& verb, const Json& request) {
      return Order(session, verb, request);
    };
    return settings;
  }

  Json Order(Session& session, const std::string& verb, const Json& request) const {
    if (verb != "check" && verb != "set") {
      throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is no order to a sensor", verb));
    }
    options_.source.RequireSettings();
    const Recipe recipe = ParseRecipe(request.at("recipe").dump(), {}, session.model());
    if (verb == "check") return Json::object();
    return {{"before", Json::parse(AsText(options_.source.Change(session, recipe)))}};
  }

  void Begin(ring::RecordRing& ring) override { publisher_->Begin(ring); }
  void Work() override {
    publisher_->Work();
    Show(/*last=*/false);
  }
  void Finish(bool crashed) override { publisher_->Finish(crashed); }

  void Show(bool last) {
    if (!on_screen_) return;
    const auto now = Clock::now();
    if (!last && now - shown_ < kShowEvery) return;
    shown_ = now;
    const Publisher::Totals totals = publisher_->totals();
    fmt::print(
        stderr, "\r{} profiles, {} images, {:.1f} MB, waiting {}, missing {}, dropped {}{}{}{}",
        totals.strips, totals.images, static_cast<double>(totals.bytes) / kMegabyte, totals.waiting,
        totals.missing, totals.dropped, totals.sent.trouble.empty() ? "" : ": ",
        totals.sent.trouble, last ? "\033[K\n" : "\033[K");
    fflush(stderr);
  }

  ExitCode Report(const Session& session, const RecordSource::End& end) const {
    const Publisher::Totals totals = publisher_->totals();
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    session.Print("{}, {}, {:.1f} MB in {:.1f} s to {}\n", Counted(totals.strips, "profile"),
                  Counted(totals.images, "image"), static_cast<double>(totals.bytes) / kMegabyte,
                  seconds, options_.name);
    session.Print("missing ids {}, dropped {}, sent again {}\n", totals.missing, totals.dropped,
                  totals.sent.sent_again);
    std::optional<Failure> failure = end.failure;
    if (!failure && totals.waiting > 0 && !totals.saved) {
      failure.emplace(ExitCode::kNegative,
                      fmt::format("{} were not sent and are lost: {}",
                                  Counted(totals.waiting, "message"), totals.sent.trouble),
                      "give them a place with --store, or more time with --drain");
    } else if (totals.waiting > 0 && totals.saved) {
      session.Note("{} wait in {} for the next publisher", Counted(totals.waiting, "message"),
                   options_.store);
    }
    Json json = publisher_->Status();
    json["seconds"] = seconds;
    json["application_status"] = end.status;
    if (failure) AddTo(json, *failure);
    session.Emit(json);
    if (failure) throw *failure;
    return static_cast<ExitCode>(end.status);
  }

  CLI::App* app_ = nullptr;
  PublishOptions options_;
  Server* server_ = nullptr;
  Publisher* publisher_ = nullptr;
  const bool on_screen_ = IsScreen(STDERR_FILENO);
  Clock::time_point start_;
  Clock::time_point shown_;
};

}  // namespace

std::unique_ptr<Command> MakePublishCommand() { return std::make_unique<PublishCommand>(); }

}  // namespace tool::fleet
