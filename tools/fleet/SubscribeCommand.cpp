#include <chrono>
#include <cmath>

#include "Counted.h"
#include "Failure.h"
#include "Interrupt.h"
#include "fleet/Commands.h"
#include "fleet/Names.h"
#include "fleet/SubscribeOptions.h"
#include "fleet/Subscriber.h"
#include "watch/Terminal.h"

namespace tool::fleet {
namespace {

constexpr std::chrono::milliseconds kStoreSlice{20};
constexpr std::chrono::milliseconds kTellEvery{500};
constexpr std::chrono::milliseconds kAskEvery{300};

class SubscribeCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &options_.Describe(parent, common);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Session::LeaveOutBoard();
    if (!IsPattern(options_.pattern)) {
      throw Failure(
          ExitCode::kUsage, fmt::format("\"{}\" names no sensors", options_.pattern),
          "words with dots between, such as line3.left; * is one word, > all that follow");
    }
    RequireSubscriberName(options_.name);
    CatchInterrupts([] {});
    // Both live to the end of the process, as the client library's threads do.
    const auto* const server =
        new Server(options_.server, Role::kSubscriber, options_.name, Server::Absent::kFail);
    Subscriber::Settings settings{options_.pattern, options_.name, {}};
    if (!options_.merge.empty()) {
      settings.order.by =
          options_.merge == "time" ? DeliveryOrder::By::kTime : DeliveryOrder::By::kEncoder;
      settings.order.patience_ns = std::llround(options_.patience * 1e9);
    }
    subscriber_ = new Subscriber(*server, settings, options_.output);
    start_ = Clock::now();
    std::optional<Failure> failure;
    try {
      while (!Interrupted() && !IsOver()) {
        subscriber_->Work(kStoreSlice);
        TellTrouble(session);
        Show(/*last=*/false);
      }
      subscriber_->Finish();
    } catch (const Failure& now) {
      failure = now;
    }
    Show(/*last=*/true);
    return Report(session, failure);
  }

 private:
  using Clock = std::chrono::steady_clock;

  Intake::Counts Sum() const {
    Intake::Counts sum;
    for (const auto& [sensor, counts] : subscriber_->counts()) {
      sum.strips += counts.strips;
      sum.images += counts.images;
      sum.bytes += counts.bytes;
      sum.named += counts.named;
      sum.open_gaps += counts.open_gaps;
      sum.unknown += counts.unknown;
      sum.duplicates += counts.duplicates;
      sum.passed_over += counts.passed_over;
      sum.damaged += counts.damaged;
    }
    return sum;
  }

  bool IsOver() {
    const auto now = Clock::now();
    if (options_.seconds != 0 && now - start_ >= std::chrono::duration<double>(options_.seconds)) {
      return true;
    }
    const Intake::Counts sum = Sum();
    if (options_.frames != 0 && sum.strips + sum.images >= options_.frames) return true;
    if (!options_.once || now < ask_at_) return false;
    ask_at_ = now + kAskEvery;
    return now - start_ > kAskEvery && subscriber_->HasAll();
  }

  void TellTrouble(const Session& session) {
    const std::string trouble = subscriber_->trouble();
    if (trouble == std::exchange(told_, trouble)) return;
    if (!told_.empty()) session.Note("{}; trying again", told_);
  }

  void Show(bool last) {
    if (!on_screen_) return;
    const auto now = Clock::now();
    if (!last && now - shown_ < kTellEvery) return;
    shown_ = now;
    const Intake::Counts sum = Sum();
    fmt::print(stderr, "\r{}: {} profiles, {} images, {:.1f} MB, missing {}, unexplained {}{}",
               Counted(subscriber_->counts().size(), "sensor"), sum.strips, sum.images,
               static_cast<double>(sum.bytes) / 1e6, sum.named, sum.unknown,
               last ? "\033[K\n" : "\033[K");
    fflush(stderr);
  }

  static Json JsonOf(const Intake::Counts& counts) {
    return {{"strips", counts.strips},         {"images", counts.images},
            {"bytes", counts.bytes},           {"missing_named", counts.named},
            {"open_gaps", counts.open_gaps},   {"unexplained", counts.unknown},
            {"duplicates", counts.duplicates}, {"passed_over", counts.passed_over},
            {"damaged", counts.damaged}};
  }

  ExitCode Report(const Session& session, const std::optional<Failure>& failure) const {
    const Intake::Counts sum = Sum();
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const auto all = subscriber_->counts();
    session.Print("{}, {}, {:.1f} MB of {} in {:.1f} s: {}\n", Counted(sum.strips, "profile"),
                  Counted(sum.images, "image"), static_cast<double>(sum.bytes) / 1e6,
                  Counted(all.size(), "sensor"), seconds, options_.output);
    session.Print("missing and named {}, gaps without an end {}, unexplained {}, came again {}\n",
                  sum.named, sum.open_gaps, sum.unknown, sum.duplicates);
    Json json = JsonOf(sum);
    json["seconds"] = seconds;
    json["file"] = options_.output;
    json["sensors"] = Json::object();
    for (const auto& [sensor, counts] : all) json["sensors"][sensor] = JsonOf(counts);
    const Latency& latency = subscriber_->latency();
    if (latency.count() > 0) {
      const auto ms = [](std::uint64_t ns) { return static_cast<double>(ns) / 1e6; };
      const double half = ms(latency.Quantile(0.5));
      const double most = ms(latency.Quantile(0.99));
      session.Print("from the handler to here: half within {:.1f} ms, 99 % within {:.1f} ms\n",
                    half, most);
      json["latency_ms"] = {{"p50", half}, {"p99", most}, {"most", ms(latency.most_ns())}};
    }
    if (subscriber_->order().Merges()) {
      const auto& merged = subscriber_->order().counters();
      session.Print("merged by {}: late {}, not waited for {}\n", options_.merge, merged.late,
                    merged.impatient);
      json["late"] = merged.late;
      json["not_waited_for"] = merged.impatient;
    }
    if (failure) AddTo(json, *failure);
    session.Emit(json);
    if (failure) throw *failure;
    if (sum.passed_over > 0) {
      session.Note("{} had to be fetched, because the server passed over them: see its log",
                   Counted(sum.passed_over, "message"));
    }
    if (sum.damaged > 0) {
      session.Note("{} came that no publisher of this version sends",
                   Counted(sum.damaged, "message"));
    }
    const bool lost = sum.named + sum.open_gaps + sum.unknown + sum.damaged > 0;
    return options_.strict && lost ? ExitCode::kNegative : ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  SubscribeOptions options_;
  Subscriber* subscriber_ = nullptr;
  const bool on_screen_ = IsScreen(STDERR_FILENO);
  std::string told_;
  Clock::time_point start_, shown_, ask_at_;
};

}  // namespace

std::unique_ptr<Command> MakeSubscribeCommand() { return std::make_unique<SubscribeCommand>(); }

}  // namespace tool::fleet
