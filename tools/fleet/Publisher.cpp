#include "fleet/Publisher.h"

#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "HostClock.h"
#include "fleet/Names.h"
#include "fleet/RecordJson.h"

namespace tool::fleet {
namespace {

constexpr std::chrono::seconds kStatusPeriod{1};
constexpr std::chrono::milliseconds kMostAtOnce{50};
constexpr std::chrono::milliseconds kOtherPublisher{300};
// The headers count, too.
constexpr std::size_t kHeaders = 1024;
constexpr std::array kDeviceFacts{"model", "library", "fpga"};
// Also of a server that we have not met yet: what is too long for it would be in the way for ever.
constexpr std::size_t kLeastMessage = 64 << 10;

std::string HostName() {
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

std::size_t PayloadOf(const Server& server) {
  const std::size_t most = server.MostBytes() == 0 ? kLeastMessage : server.MostBytes();
  if (most < kLeastMessage) {
    throw Failure(ExitCode::kUnreachable,
                  fmt::format("the server takes messages of {} bytes only", most),
                  fmt::format("set its max_payload to {} at least", kLeastMessage));
  }
  return most - kHeaders;
}

}  // namespace

Publisher::Publisher(Server& server, Settings settings)
    : server_(server),
      settings_(std::move(settings)),
      backlog_(settings_.backlog),
      sender_(server, backlog_, settings_.stream),
      packetizer_(NewRun(), PayloadOf(server)),
      started_ns_(HostNs()) {
  RequireName();
  Listen();
  sender_.Start();
}

void Publisher::Listen() {
  const auto listen = [this](const std::string& subject, Subscription& to) {
    natsSubscription* made = nullptr;
    Check(natsConnection_Subscribe(&made, server_.connection(), subject.c_str(), OnQuestion, this),
          subject);
    to.reset(made);
  };
  listen(ControlSubject("*", settings_.stream.sensor), own_questions_);
  listen(ControlSubject("status", ""), common_questions_);
}

void Publisher::ListenAgain() {
  const std::uint64_t generation = server_.generation();
  try {
    Listen();
    listens_on_ = generation;
  } catch (const Failure&) {  // that connection has broken, too
  }
}

void Publisher::RequireName() const {
  const std::string& name = settings_.stream.sensor;
  const auto answers =
      server_.Ask({ControlSubject("status", name)}, Json::object(), kOtherPublisher, 1);
  if (answers.empty()) return;
  throw Failure(ExitCode::kExists,
                fmt::format("{} is published already, by {} (process {})", name,
                            answers.front().value("host", "another machine"),
                            answers.front().value("pid", 0)),
                "give another --name, or stop that one");
}

void Publisher::Begin(ring::RecordRing& ring) {
  ring_ = &ring;
  Json facts = settings_.facts;
  facts["host"] = HostName();
  facts["run"] = run();
  backlog_.Put({packetizer_.Make(Kind::kDevice, HostNs(), facts)});
}

void Publisher::Learn(const ring::Record& record) {
  const Json facts = ToJson(record);
  for (const char* const key : kDeviceFacts) {
    if (facts.contains(key)) device_[key] = facts[key];
  }
}

void Publisher::Take(bool written_off) {
  const auto enough = Clock::now() + kMostAtOnce;
  while (const auto found = ring_->At(ring_->First(), written_off)) {
    const ring::Record& record = found->record;
    if (record.kind == ring::Kind::kStrips) totals_.strips += record.first;
    if (record.kind == ring::Kind::kImage) ++totals_.images;
    if (record.kind == ring::Kind::kDevice) Learn(record);
    totals_.bytes += record.payload.size();
    backlog_.Put(packetizer_.Make(record, ring_->DroppedFrames()));
    ring_->Release(found->next);
    if (!written_off && Clock::now() > enough) return;
  }
}

void Publisher::Work() {
  Take(/*written_off=*/false);
  AnswerQuestions();
  if (listens_on_ != server_.generation() && server_.IsConnected()) ListenAgain();
  if (Clock::now() >= next_status_) TellStatus();
}

void Publisher::TellStatus() {
  const auto now = Clock::now();
  next_status_ = now + kStatusPeriod;
  const std::uint64_t frames = totals_.strips + totals_.images;
  const double seconds = std::chrono::duration<double>(now - then_).count();
  if (seconds > 0) rate_ = static_cast<double>(frames - frames_then_) / seconds;
  frames_then_ = frames;
  then_ = now;
  const Json status = Status();
  if (server_.IsConnected()) server_.Publish(PresenceSubject(settings_.stream.sensor), status);
  backlog_.Put({packetizer_.Make(Kind::kStatistics, HostNs(), status)});
}

Publisher::Totals Publisher::totals() const {
  Totals totals = totals_;
  totals.missing = packetizer_.missing();
  totals.sent = sender_.counts();
  totals.backlog = backlog_.counts();
  totals.dropped = totals.backlog.dropped_frames;
  totals.waiting = totals.backlog.packets + totals.sent.on_the_way;
  return totals;
}

Json Publisher::Status() const {
  const Totals now = totals();
  Json json = settings_.facts;
  json.update(device_);
  json.update({{"sensor", settings_.stream.sensor},
               {"run", run()},
               {"host", HostName()},
               {"pid", getpid()},
               {"started_ns", started_ns_},
               {"server", server_.Url()},
               {"strips", now.strips},
               {"images", now.images},
               {"bytes", now.bytes},
               {"frames_per_second", rate_},
               {"missing_frames", now.missing},
               {"dropped_frames", now.dropped},
               {"acknowledged", now.sent.acknowledged},
               {"sent_again", now.sent.sent_again},
               {"waiting", now.waiting},
               {"waiting_memory_bytes", now.backlog.memory_bytes},
               {"waiting_file_bytes", now.backlog.file_bytes},
               {"trouble", now.sent.trouble},
               {"store_error", now.backlog.file_error}});
  if (settings_.health) json.update(settings_.health());
  return json;
}

void Publisher::OnQuestion(natsConnection*, natsSubscription*, natsMsg* message, void* self) {
  auto& publisher = *static_cast<Publisher*>(self);
  const std::lock_guard lock(publisher.mutex_);
  publisher.questions_.emplace_back(message);
}

void Publisher::AnswerQuestions() {
  std::deque<Message> questions;
  {
    const std::lock_guard lock(mutex_);
    questions.swap(questions_);
  }
  for (const Message& question : questions) {
    const char* const reply = natsMsg_GetReply(question.get());
    // What a server delivers from a stream asks for nothing: its answer would acknowledge.
    if (reply == nullptr || std::string_view(reply).starts_with("$JS.")) continue;
    // tessaline.control.VERB.NAME
    const std::string subject = natsMsg_GetSubject(question.get());
    const std::size_t from = subject.find('.', subject.find('.') + 1) + 1;
    const std::string verb = subject.substr(from, subject.find('.', from) - from);
    server_.Publish(reply, Answer(verb, JsonOf(question.get())));
  }
}

Json Publisher::Answer(const std::string& verb, const Json& request) {
  if (verb == "status") return Status();
  Json answer{{"sensor", settings_.stream.sensor}, {"run", run()}};
  try {
    answer.update(settings_.order(verb, request));
  } catch (const Failure& failure) {
    AddTo(answer, failure);
  } catch (const Json::exception&) {
    AddTo(answer, Failure(ExitCode::kUsage, fmt::format("\"{}\" without what it needs", verb)));
  }
  return answer;
}

void Publisher::Finish(bool) {
  Take(/*written_off=*/true);
  backlog_.Put(packetizer_.Finish(HostNs(), ring_->DroppedFrames()));
  sender_.Drain(settings_.drain);
  sender_.Stop();
  if (backlog_.counts().packets > 0) totals_.saved = backlog_.SaveAll();
}

}  // namespace tool::fleet
