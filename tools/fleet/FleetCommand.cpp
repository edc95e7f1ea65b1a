#include <fmt/ranges.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>

#include "ChildProcess.h"
#include "Counted.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Preload.h"
#include "RecipeFile.h"
#include "RecipeText.h"
#include "fleet/Commands.h"
#include "fleet/FleetOptions.h"
#include "fleet/Kept.h"
#include "fleet/LiveFeed.h"
#include "fleet/NKey.h"
#include "fleet/Names.h"
#include "fleet/Rights.h"
#include "fleet/Server.h"
#include "fleet/Stream.h"
#include "record/SensorName.h"

namespace tool::fleet {
namespace {

constexpr const char* kOperator = "operator";
// A sensor's region is set in some hundred milliseconds.
constexpr std::chrono::seconds kSetPatience{25};
constexpr std::size_t kAll = 100'000;
constexpr std::chrono::milliseconds kChildSlice{50};

class FleetCommand : public Command {
 public:
  void Describe(CLI::App& parent, CommonOptions& common) override {
    app_ = &options_.Describe(parent, common);
  }
  bool Asked() const override { return app_->parsed(); }

  ExitCode Run(Session& session) override {
    Session::LeaveOutBoard();
    if (options_.make_key->parsed()) return MakeKeyFile(session);
    if (options_.rights->parsed()) return ShowRights(session);
    if (!IsPattern(options_.pattern)) {
      throw Failure(
          ExitCode::kUsage, fmt::format("\"{}\" names no sensors", options_.pattern),
          "words with dots between, such as line3.left; * is one word, > all that follow");
    }
    if (options_.add->parsed()) return Join(session);
    if (options_.set->parsed()) return Set(session);
    if (options_.forget->parsed()) return Forget(session);
    if (options_.show->parsed()) return ShowSensor(session);
    return ShowStatus(session);
  }

 private:
  using Answers = std::map<std::string, Json>;  // by sensor

  Answers Collect(const Server& server, const std::vector<std::string>& subjects,
                  const Json& question, std::chrono::milliseconds patience,
                  std::size_t enough) const {
    Answers answers;
    for (Json& answer : server.Ask(subjects, question, patience, enough)) {
      if (!answer.contains("sensor") || !answer["sensor"].is_string()) continue;
      const std::string sensor = answer["sensor"];
      if (IsSensorName(sensor) && Matches(options_.pattern, sensor))
        answers[sensor] = std::move(answer);
    }
    return answers;
  }

  Answers Present(const Server& server) const {
    const auto patience = std::chrono::milliseconds(std::llround(options_.patience * 1e3));
    return Collect(server, {ControlSubject("status", "")}, Json::object(), patience, kAll);
  }

  std::map<std::string, std::optional<Kept>> KeptNow(const Server& server) const {
    try {
      return AllKept(server, options_.pattern);
    } catch (const Failure&) {  // it stores nothing; sensors may be there all the same
      return {};
    }
  }
  static Json JsonOf(const std::optional<Kept>& kept) { return kept ? ToJson(*kept) : Json(); }

  static std::uint64_t NumberIn(const Json& json, const char* key) {
    return json.contains(key) && json[key].is_number_unsigned() ? json[key].get<std::uint64_t>()
                                                                : 0;
  }
  static std::string TextIn(const Json& json, const char* key) {
    return json.contains(key) && json[key].is_string() ? json[key].get<std::string>() : "";
  }

  static double RateIn(const Json& json) {
    const auto found = json.find("frames_per_second");
    return found != json.end() && found->is_number() ? found->get<double>() : 0;
  }

  ExitCode ShowStatus(Session& session) const {
    const Server server(options_.server, Role::kOperator, kOperator, Server::Absent::kFail);
    Answers present = Present(server);
    const auto kept = KeptNow(server);
    for (const auto& [sensor, about] : kept) {
      if (!present.contains(sensor)) present[sensor] = {{"sensor", sensor}, {"present", false}};
    }
    Json list = Json::array();
    if (!present.empty()) {
      session.Print("{:<20} {:<8} {:>9} {:>9} {:>9} {:>9} {:>9}  {}\n", "sensor", "model",
                    "frames/s", "missing", "dropped", "waiting", "unstored", "state");
    }
    std::size_t absent = 0;
    for (auto& [sensor, about] : present) {
      const bool here = !about.contains("present");
      about["present"] = here;
      absent += here ? 0 : 1;
      const auto place = kept.find(sensor);
      const std::optional<Kept> stored = place == kept.end() ? std::nullopt : place->second;
      about["kept"] = JsonOf(stored);
      const auto unstored = stored ? stored->MostUnstored() : std::nullopt;
      const std::string trouble = TextIn(about, "trouble");
      session.Print("{:<20} {:<8} {:>9.1f} {:>9} {:>9} {:>9} {:>9}  {}\n", sensor,
                    TextIn(about, "model"), RateIn(about), NumberIn(about, "missing_frames"),
                    NumberIn(about, "dropped_frames"), NumberIn(about, "waiting"),
                    unstored ? std::to_string(*unstored) : "?",
                    !here             ? "not there"
                    : trouble.empty() ? "well"
                                      : trouble);
      list.push_back(about);
    }
    if (present.empty()) session.Print("no sensor matches {}\n", options_.pattern);
    session.Emit({{"server", server.Url()}, {"sensors", list}});
    return absent > 0 || present.empty() ? ExitCode::kNegative : ExitCode::kOk;
  }

  // Asks all sensors to do something; throws a Failure that names those that cannot.
  Answers Order(const Server& server, const std::string& verb, const Json& request,
                const std::set<std::string>& sensors) const {
    std::vector<std::string> subjects;
    for (const std::string& sensor : sensors) subjects.push_back(ControlSubject(verb, sensor));
    return Collect(server, subjects, request, kSetPatience, sensors.size());
  }

  static std::string Troubles(const Answers& answers, const std::set<std::string>& sensors) {
    std::string text;
    for (const std::string& sensor : sensors) {
      const auto answer = answers.find(sensor);
      const std::string error =
          answer == answers.end() ? "no answer" : TextIn(answer->second, "error");
      if (!error.empty()) text += fmt::format("{}{}: {}", text.empty() ? "" : "; ", sensor, error);
    }
    return text;
  }

  ExitCode Set(Session& session) const {
    const Recipe recipe = ReadRecipe(options_.recipe);
    RequireItself(recipe);
    const Json request{{"recipe", Json::parse(AsText(recipe))}};
    const Server server(options_.server, Role::kOperator, kOperator, Server::Absent::kFail);
    std::set<std::string> sensors, absent;
    for (const auto& [sensor, about] : Present(server)) sensors.insert(sensor);
    for (const auto& [sensor, about] : KeptNow(server)) {
      if (!sensors.contains(sensor)) absent.insert(sensor);
    }
    if (!absent.empty()) {
      throw Failure(ExitCode::kUnreachable,
                    fmt::format("nothing was changed; not there: {}", fmt::join(absent, ", ")),
                    "start it, or \"tessaline fleet forget\" it");
    }
    if (sensors.empty()) {
      throw Failure(ExitCode::kUnreachable, fmt::format("no sensor matches {}", options_.pattern),
                    "\"tessaline fleet status\" lists them");
    }
    if (const std::string troubles = Troubles(Order(server, "check", request, sensors), sensors);
        !troubles.empty()) {
      throw Failure(ExitCode::kNegative, fmt::format("nothing was changed; {}", troubles),
                    "change the recipe or the pattern");
    }
    if (session.options().dry_run) {
      session.Print("would set {}. Nothing was changed (--dry-run).\n",
                    Counted(sensors.size(), "sensor"));
      session.Emit({{"dry_run", true}, {"sensors", sensors}});
      return ExitCode::kOk;
    }
    const Answers done = Order(server, "set", request, sensors);
    if (const std::string troubles = Troubles(done, sensors); !troubles.empty()) {
      throw Failure(ExitCode::kNegative, fmt::format("{}; {}", troubles, PutBack(server, done)),
                    "look at the sensor's log");
    }
    session.Print("set {}\n", Counted(sensors.size(), "sensor"));
    session.Emit({{"sensors", sensors}, {"recipe", request["recipe"]}});
    return ExitCode::kOk;
  }

  // Gives the sensors that were set the settings from before.
  std::string PutBack(const Server& server, const Answers& done) const {
    std::size_t good = 0;
    std::string bad;
    for (const auto& [sensor, answer] : done) {
      if (!answer.contains("before")) continue;
      const std::set<std::string> one{sensor};
      const std::string trouble =
          Troubles(Order(server, "set", {{"recipe", answer["before"]}}, one), one);
      good += trouble.empty() ? 1 : 0;
      if (!trouble.empty()) bad += "; not put back: " + trouble;
    }
    return fmt::format("{} put back to the settings from before{}", Counted(good, "sensor"), bad);
  }

  ExitCode ShowSensor(const Session& session) const {
    RequireSensorName(options_.pattern);
    // Both live to the end of the process, as the client library's threads do.
    const SignalsBlocked inherited;  // they are for the thread that waits for the application
    const auto& server =
        *new Server(options_.server, Role::kOperator, kOperator, Server::Absent::kFail);
    const Answers present = Present(server);
    const auto found = present.find(options_.pattern);
    const std::string model = found == present.end() ? "" : TextIn(found->second, "model");
    if (found == present.end()) {
      throw Failure(ExitCode::kUnreachable, fmt::format("{} is not there", options_.pattern),
                    "\"tessaline fleet status\" lists the sensors");
    }
    if (!Model(model).known()) {
      throw Failure(ExitCode::kUnreachable,
                    fmt::format("{} does not say which product it is", options_.pattern),
                    "give its publisher --model");
    }
    const auto& feed = *new LiveFeed(server, options_.pattern);
    std::vector<std::string> words = options_.application;
    if (words.empty()) words = {ProgramBeside("tessaline"), "serve"};
    ChildProcess::Variables variables = feed.rings().VariablesFor(model, /*speed=*/0);
    variables.emplace_back("LD_PRELOAD", Behind(FindLibrary(kBoardLibrary)));
    ChildProcess child(words, variables);
    while (child.Wait(kChildSlice) != ChildProcess::News::kEnded) {
    }
    const LiveFeed::Counts counts = feed.counts();
    session.Print("{} and {} of {} handed over, {} left out\n", Counted(counts.strips, "profile"),
                  Counted(counts.images, "image"), options_.pattern,
                  Counted(counts.left_out, "frame"));
    session.Emit({{"strips", counts.strips},
                  {"images", counts.images},
                  {"left_out", counts.left_out},
                  {"application_status", child.Status()}});
    return static_cast<ExitCode>(child.Status());
  }

  static std::string ProgramBeside(const char* name) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / name;
  }

  // A sensor's key does not suffice for it: who may make places may also make one that has what
  // others send.
  ExitCode Join(const Session& session) const {
    RequireSensorName(options_.pattern);
    const Server server(options_.server, Role::kOperator, kOperator, Server::Absent::kFail);
    if (!session.options().dry_run) {
      RequireStream(server,
                    {options_.pattern, options_.place.replicas, options_.place.MostBytes()});
    }
    session.Print("{} {}\n", session.options().dry_run ? "would add" : "added", options_.pattern);
    session.Emit({{"sensor", options_.pattern}, {"dry_run", session.options().dry_run}});
    return ExitCode::kOk;
  }

  // For a sensor that does not come back, or a subscriber. What is kept is lost, so it must be
  // asked for.
  ExitCode Forget(const Session& session) const {
    const Server server(options_.server, Role::kOperator, kOperator, Server::Absent::kFail);
    const Answers present = options_.subscriber.empty() ? Present(server) : Answers{};
    if (!present.empty()) {
      throw Failure(ExitCode::kNegative,
                    fmt::format("{} is there, and would begin anew", present.begin()->first),
                    "stop its publisher first");
    }
    const auto kept = AllKept(server, options_.pattern);
    if (kept.empty()) {
      throw Failure(ExitCode::kNegative, fmt::format("nothing is kept of {}", options_.pattern),
                    "\"tessaline fleet status\" lists the sensors");
    }
    if (!options_.discard) RequireStored(kept);
    Json sensors = Json::object();
    for (const auto& [sensor, about] : kept) {
      sensors[sensor] = JsonOf(about);
      if (session.options().dry_run) continue;
      options_.subscriber.empty() ? ForgetStream(server, sensor)
                                  : ForgetSubscriber(server, sensor, options_.subscriber);
    }
    session.Print("{} {}{}\n", session.options().dry_run ? "would forget" : "forgot",
                  options_.subscriber.empty() ? "" : options_.subscriber + " at ",
                  Counted(kept.size(), "sensor"));
    session.Emit({{"sensors", sensors}, {"dry_run", session.options().dry_run}});
    return ExitCode::kOk;
  }

  // What is forgotten has been stored by those whom it concerns.
  void RequireStored(const std::map<std::string, std::optional<Kept>>& kept) const {
    std::uint64_t unstored = 0;
    for (const auto& [sensor, about] : kept) {
      if (!about || !about->unstored) {
        throw Failure(ExitCode::kUnreachable,
                      fmt::format("the servers do not say what is stored of {}", sensor),
                      "try again, or give --discard");
      }
      for (const auto& [subscriber, messages] : *about->unstored) {
        const bool concerned = options_.subscriber.empty() || subscriber == options_.subscriber;
        if (concerned) unstored = std::max(unstored, messages);
      }
    }
    if (unstored == 0) return;
    throw Failure(ExitCode::kNegative,
                  fmt::format("a subscriber has not stored {} yet", Counted(unstored, "message")),
                  "store them with \"tessaline subscribe --once\", or give --discard");
  }

  ExitCode MakeKeyFile(const Session& session) const {
    const std::string key = MakeKey(options_.output);
    session.Print("{}\n", key);
    session.Emit({{"public_key", key}, {"file", options_.output}});
    return ExitCode::kOk;
  }

  ExitCode ShowRights(const Session& session) const {
    RequireSensorName(options_.name);
    if (options_.role == "subscriber") RequireSubscriberName(options_.name);
    RequirePublicKey(options_.key);
    const std::string text = RightsOf(options_.role, options_.name, options_.key);
    session.Print("{}", text);
    session.Emit({{"configuration", text}});
    return ExitCode::kOk;
  }

  CLI::App* app_ = nullptr;
  FleetOptions options_;
};

}  // namespace

std::unique_ptr<Command> MakeFleetCommand() { return std::make_unique<FleetCommand>(); }

}  // namespace tool::fleet
