#include "fleet/Subscriber.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "HostClock.h"
#include "fleet/Names.h"
#include "fleet/SendWindow.h"
#include "fleet/Stream.h"

namespace tool::fleet {
namespace {

constexpr std::chrono::seconds kLookPeriod{2};
constexpr std::chrono::milliseconds kSyncPeriod{200};
constexpr std::uint64_t kMostUnsynced = 32 << 20;
// Of one sensor: the server sends on while the disk works.
constexpr std::int64_t kMostWritten = kMostUnstored / 4;
// The server sends again what it has, after its own patience, more than once in this time.
constexpr std::chrono::seconds kHolePatience{30};
constexpr std::chrono::seconds kBoundPatience{10};
// A sensor that sends says something each second.
constexpr std::chrono::seconds kSilence{5};
constexpr std::chrono::seconds kLookOverPeriod{10};
constexpr std::chrono::seconds kFetchPause{2};
constexpr int kFetchedAtOnce = 64;
// Behind the name of a run in the file: nothing more is to come of it.
constexpr std::string_view kOver = "over";

std::uint64_t StreamNumber(natsMsg* message) {
  jsMsgMetaData* about = nullptr;
  if (natsMsg_GetMetaData(&about, message) != NATS_OK) return 0;
  const std::uint64_t number = about->Sequence.Stream;
  jsMsgMetaData_Destroy(about);
  return number;
}

// The publisher's name for it, under which the server stores it once.
std::string NameIn(natsMsg* message) {
  const char* name = nullptr;
  natsMsgHeader_Get(message, kMessageId, &name);
  return name == nullptr ? "" : name;
}

GapMessage MessageOf(const Gap& gap, std::int64_t stamp_ns) {
  GapMessage message;
  message.stamp_ns = stamp_ns;
  message.reason = gap.reason;
  message.run = gap.run;
  message.end_known = !gap.strips.to_end && !gap.images.to_end;
  const auto set = [](const MissingFrames& missing, std::uint64_t& first, std::uint64_t& last,
                      std::uint64_t& count) {
    const Range ids = missing.ids.value_or(Range{});
    first = ids.first;
    last = ids.last;
    count = missing.count;
  };
  set(gap.strips, message.strips_first, message.strips_last, message.strips_count);
  set(gap.images, message.images_first, message.images_last, message.images_count);
  message.others = gap.others;
  return message;
}

}  // namespace

Subscriber::Subscriber(const Server& server, Settings settings, const std::string& path)
    : server_(server), settings_(std::move(settings)), file_(path), order_(settings_.order) {}

void Subscriber::LookForSensors() {
  next_look_ = Clock::now() + kLookPeriod;
  if (!server_.IsConnected()) return;
  trouble_.clear();
  for (const std::string& sensor : SensorsNow()) {
    if (inputs_.contains(sensor)) continue;
    try {
      Open(sensor);
      if (inputs_.contains(sensor)) bound_since_.erase(sensor);
    } catch (const Failure& failure) {
      if (failure.code() == ExitCode::kExists) throw;
      trouble_ = failure.what();  // the cluster is choosing a leader: it will do later
    }
  }
}

std::vector<std::string> Subscriber::SensorsNow() {
  try {
    std::vector<std::string> sensors = SensorsWithStreams(server_, settings_.pattern);
    has_streams_ = true;
    return sensors;
  } catch (const Failure& failure) {
    if (failure.code() == ExitCode::kNegative && !has_streams_) throw;
    trouble_ = failure.what();
    return {};
  }
}

void Subscriber::Open(const std::string& sensor) {
  const std::string stream = StreamName(sensor);
  RequireSubscriber(server_, sensor, settings_.name);
  const auto context = server_.NewStreamContext();
  jsErrCode code{};
  jsConsumerInfo* about = nullptr;
  Check(js_GetConsumerInfo(&about, context.get(), stream.c_str(), settings_.name.c_str(), nullptr,
                           &code),
        stream);
  const std::uint64_t used = about->AckFloor.Stream;
  const bool bound = about->PushBound;
  jsConsumerInfo_Destroy(about);
  if (bound) return RequireUnbound(sensor);
  jsStreamInfo* place = nullptr;
  Check(js_GetStreamInfo(&place, context.get(), stream.c_str(), nullptr, &code), stream);
  const std::uint64_t gone = std::max<std::uint64_t>(place->State.FirstSeq, 1) - 1;
  const bool went_back = used > place->State.LastSeq;
  jsStreamInfo_Destroy(place);

  std::map<std::string, RunOrder::Used> known;
  for (const auto& [key, sequence] : file_.positions()) {
    if (key.sensor != sensor) continue;
    if (key.run.ends_with(kOver)) {
      known[key.run.substr(0, key.run.size() - kOver.size())].over = true;
    } else {
      known[key.run].last = sequence;
    }
  }
  Input input;
  input.stream = std::make_unique<StreamOrder<std::optional<Arrival>>>(std::max(used, gone));
  input.runs = std::make_unique<RunOrder>(known);
  input.assembler = std::make_unique<Assembler>(sensor);
  input.passed_over = std::make_unique<PassedOver>(server_, sensor, settings_.name);
  input.before = went_back ? 0 : std::max(used, gone);
  input.came_at = Clock::now();
  order_.Join(sensor);
  Input& kept = inputs_.emplace(sensor, std::move(input)).first->second;

  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = stream.c_str();
  options.Consumer = settings_.name.c_str();
  options.ManualAck = true;
  natsSubscription* made = nullptr;
  auto* const origin = new Origin{this, sensor};  // as long as the process
  const natsStatus status = js_Subscribe(&made, context.get(), DataSubject("*", sensor).c_str(),
                                         OnMessage, origin, nullptr, &options, &code);
  if (status != NATS_OK) {
    inputs_.erase(sensor);
    throw Failure(ExitCode::kUnreachable,
                  fmt::format("cannot take what is kept of {} for {}: {}", sensor, settings_.name,
                              TextOf(status, code)));
  }
  kept.subscription.reset(made);
  natsSubscription_SetPendingLimits(made, -1, -1);
}

// The server notices only after a while that a subscriber has gone, perhaps an earlier one of ours.
void Subscriber::RequireUnbound(const std::string& sensor) {
  const auto now = Clock::now();
  const auto since = bound_since_.try_emplace(sensor, now).first->second;
  if (now - since < kBoundPatience) {
    trouble_ = fmt::format("{} still has a subscriber with the name {}", sensor, settings_.name);
    return;
  }
  throw Failure(ExitCode::kExists,
                fmt::format("{} has another subscriber with the name {}", sensor, settings_.name),
                "choose a name of your own with --as");
}

void Subscriber::OnMessage(natsConnection*, natsSubscription*, natsMsg* message, void* origin) {
  const auto& from = *static_cast<Origin*>(origin);
  const std::lock_guard lock(from.subscriber->mutex_);
  from.subscriber->came_.push_back({Message(message), from.sensor, HostNs()});
  from.subscriber->arrived_.notify_one();
}

void Subscriber::Work(std::chrono::milliseconds patience) {
  if (Clock::now() >= next_look_) LookForSensors();
  std::deque<Came> came;
  {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, patience, [this] { return !came_.empty(); });
    came.swap(came_);
  }
  for (Came& one : came) Use(std::move(one));
  const bool interrupted = !server_.IsConnected();
  for (auto& [sensor, input] : inputs_) {
    if (interrupted) input.stream->Interrupted(Clock::now());
    Advance(sensor, input);
  }
  if (!interrupted) LookForPassedOver();
  while (auto delivery = order_.Take()) Store(std::move(*delivery));
  CommitIfDue();
}

void Subscriber::Use(Came came) {
  Input& input = inputs_.at(came.sensor);
  input.came_at = Clock::now();
  const std::uint64_t number = StreamNumber(came.message.get());
  const bool had = input.stream->Has(number);
  auto arrival = ArrivalIn(came.message, came.sensor);
  if (!arrival) {
    ++(had ? input.counts.duplicates : input.counts.damaged);
    natsMsg_Ack(came.message.get(), nullptr);
    if (!had) input.stream->Add(number, std::nullopt, Clock::now());
    return;
  }
  if (had && (IsAgain(input, number, *arrival) || !BeginAgain(came.sensor, input, number))) return;
  const PacketHeader& header = arrival->header;
  input.counts.newest_ns = std::max(input.counts.newest_ns, header.stamp_ns);
  const std::int64_t under_way = came.at_ns - header.stamp_ns;
  const bool frames = header.kind == Kind::kStrips || header.kind == Kind::kImages;
  input.open[number] = SendWindow::NameOf(header);
  input.stream->Add(number, std::move(arrival), Clock::now());
  if (frames) latency_.Add(under_way);
}

// Whether a message with a number that was there is the one that was there.
bool Subscriber::IsAgain(Input& input, std::uint64_t number, Arrival& arrival) {
  const std::string name = SendWindow::NameOf(arrival.header);
  const auto open = input.open.find(number);
  if (open != input.open.end() && open->second == name) {
    ++input.counts.duplicates;  // it is acknowledged when it is stored
    return true;
  }
  if (!input.runs->Has(arrival.header)) return false;
  ++input.counts.duplicates;
  // What has been fetched and is not stored yet has to come once more.
  if (input.fetched.contains(name)) return true;
  input.open[number] = name;  // the answer was lost
  AcknowledgeAfterSync(input, std::move(arrival.message));
  return true;
}

// The stream has begun again, or lost its end: its numbers stand for other messages now. False: not
// now; the message comes again.
bool Subscriber::BeginAgain(const std::string& sensor, Input& input, std::uint64_t number) {
  const auto context = server_.NewStreamContext();
  jsErrCode code{};
  jsConsumerInfo* about = nullptr;
  if (js_GetConsumerInfo(&about, context.get(), StreamName(sensor).c_str(), settings_.name.c_str(),
                         nullptr, &code) != NATS_OK) {
    return false;
  }
  input.before = std::min(about->AckFloor.Stream, number - 1);
  jsConsumerInfo_Destroy(about);
  while (auto waiting = input.stream->Take()) {
    std::vector<Arrival> duplicates;
    if (*waiting) Take(input, input.runs->AddLate(std::move(**waiting), duplicates), {});
  }
  input.stream = std::make_unique<StreamOrder<std::optional<Arrival>>>(input.before);
  input.open.clear();  // an answer to one of these would be one to another message now
  return true;
}

// Whether the server waits for no answer but to what has come.
bool Subscriber::HasAllDelivered(const std::string& sensor, const Input& input) const {
  const auto context = server_.NewStreamContext();
  jsErrCode code{};
  jsConsumerInfo* about = nullptr;
  if (js_GetConsumerInfo(&about, context.get(), StreamName(sensor).c_str(), settings_.name.c_str(),
                         nullptr, &code) != NATS_OK) {
    return false;
  }
  const std::int64_t pending = about->NumAckPending;
  jsConsumerInfo_Destroy(about);
  return pending <= static_cast<std::int64_t>(input.open.size());
}

void Subscriber::Advance(const std::string& sensor, Input& input) {
  const auto gone = [&] { return HasAllDelivered(sensor, input); };
  while (true) {
    if (!input.next) {
      auto next = input.stream->Next(Clock::now(), kHolePatience, gone);
      if (!next) return;
      if (!*next) continue;
      input.next = std::move(**next);
    }
    if (input.runs->Misses(*input.next) && !FetchPassedOver(sensor, input)) return;
    std::vector<Arrival> duplicates;
    auto steps = input.runs->Add(std::move(*input.next), duplicates);
    input.next.reset();
    Take(input, std::move(steps), std::move(duplicates));
  }
}

void Subscriber::Take(Input& input, std::vector<RunOrder::Step> steps,
                      std::vector<Arrival> duplicates) {
  for (RunOrder::Step& step : steps) {
    if (!step.arrival && !step.run_is_over) ++input.counts.unknown;
    for (Delivery& whole : input.assembler->Add(std::move(step))) order_.Add(std::move(whole));
  }
  for (Arrival& duplicate : duplicates) {
    ++input.counts.duplicates;
    if (input.fetched.contains(NameIn(duplicate.message.get()))) {
      input.open.erase(StreamNumber(duplicate.message.get()));
    } else {
      AcknowledgeAfterSync(input, std::move(duplicate.message));
    }
  }
}

// True: the server keeps nothing more that it has passed over. False: not all has been read yet.
bool Subscriber::FetchPassedOver(const std::string& sensor, Input& input) {
  const auto now = Clock::now();
  if (now < input.fetch_at || !server_.IsConnected()) return false;
  try {
    if (!input.fetching) {
      // What is behind comes later, or has come and waits.
      std::optional<std::uint64_t> before;
      if (input.next) before = StreamNumber(input.next->message.get());
      input.passed_over->Begin(before);
      input.round_at = now;
      input.found = 0;
      input.fetching = true;
    }
    for (int i = 0; i < kFetchedAtOnce; ++i) {
      auto kept = input.passed_over->Unchanged() ? std::nullopt : input.passed_over->Next();
      if (!kept) {
        input.fetching = false;
        input.fetch_at = now + kFetchPause;
        input.look_at = now + kLookOverPeriod;
        if (input.found == 0) input.had_all_at = input.round_at;
        return true;
      }
      auto arrival = ArrivalIn(kept->message, sensor);
      if (!arrival || input.runs->Has(arrival->header)) continue;
      if (kept->number <= input.before && !input.runs->Knows(arrival->header.run) &&
          !input.passed_over->WentBack()) {
        continue;
      }
      ++input.found;
      ++input.counts.passed_over;
      input.fetched.insert(SendWindow::NameOf(arrival->header));
      std::vector<Arrival> duplicates;
      auto steps = input.runs->AddLate(std::move(*arrival), duplicates);
      Take(input, std::move(steps), std::move(duplicates));
    }
  } catch (const Failure& failure) {
    input.fetching = false;
    input.fetch_at = now + kFetchPause;
    trouble_ = failure.what();
  }
  return false;
}

// One sensor at a time, so that the others need not wait.
void Subscriber::LookForPassedOver() {
  const auto now = Clock::now();
  for (auto& [sensor, input] : inputs_) {
    if (input.next || !input.stream->Empty()) continue;
    const bool silent = now - input.came_at > kSilence && now >= input.look_at;
    const bool asked = delivered_at_ && input.had_all_at < *delivered_at_;
    if (now < input.fetch_at || !(silent || asked || input.fetching)) continue;
    FetchPassedOver(sensor, input);
    return;
  }
}

void Subscriber::Store(Delivery delivery) {
  Input& input = inputs_.at(delivery.sensor);
  Counts& counts = input.counts;
  if (delivery.damaged) ++counts.damaged;
  if (delivery.gap) {
    const Gap& gap = *delivery.gap;
    file_.Write(delivery.sensor, MessageOf(gap, delivery.stamp_ns));
    if (gap.strips.to_end || gap.images.to_end) {
      ++counts.open_gaps;
    } else {
      counts.named += gap.strips.count + gap.images.count;
    }
  } else if (delivery.record) {
    const bool frames = !delivery.bytes.empty();
    delivery.record->payload =
        frames ? std::span<const std::byte>(delivery.bytes)
               : std::as_bytes(std::span(delivery.text.data(), delivery.text.size()));
    file_.Write(delivery.sensor, *delivery.record);
    counts.strips += delivery.strips;
    counts.images += delivery.images;
    counts.bytes += delivery.bytes.size();
    unsynced_bytes_ += delivery.bytes.size();
  }
  if (delivery.sequence > 0) {
    file_.SetPosition(delivery.sensor, delivery.run, delivery.sequence);
  }
  if (delivery.run_is_over) {
    file_.SetPosition(delivery.sensor, fmt::format("{}{}", delivery.run, kOver), 1);
  }
  for (Message& message : delivery.messages) AcknowledgeAfterSync(input, std::move(message));
}

void Subscriber::CommitIfDue(bool now) {
  const auto time = Clock::now();
  const bool full = unsynced_bytes_ >= kMostUnsynced || most_written_ >= kMostWritten;
  if (!now && !full && time < sync_at_) return;
  sync_at_ = time + kSyncPeriod;
  file_.Sync();
  unsynced_bytes_ = 0;
  for (const auto& [input, message] : stored_) {
    const std::string name = NameIn(message.get());
    const auto open = input->open.find(StreamNumber(message.get()));
    if (open != input->open.end() && open->second == name) {
      natsMsg_Ack(message.get(), nullptr);
      input->open.erase(open);
    }
    input->fetched.erase(name);
    input->written = 0;
  }
  stored_.clear();
  most_written_ = 0;
}

void Subscriber::AcknowledgeAfterSync(Input& input, Message message) {
  stored_.push_back({&input, std::move(message)});
  most_written_ = std::max(most_written_, ++input.written);
}

void Subscriber::Finish() {
  // What waits for messages in front of it is not acknowledged, and comes again the next time.
  while (auto delivery = order_.Take(/*all=*/true)) Store(std::move(*delivery));
  CommitIfDue(/*now=*/true);
  natsConnection_FlushTimeout(server_.connection(), 2000);
  file_.Close();
}

bool Subscriber::HasAll() {
  if (!delivered_at_ && HasDeliveredAll()) delivered_at_ = Clock::now();
  if (!delivered_at_) return false;
  return std::all_of(inputs_.begin(), inputs_.end(), [this](const auto& named) {
    return named.second.had_all_at >= *delivered_at_;
  });
}

// Up to what was the last message of each sensor when this was asked first.
bool Subscriber::HasDeliveredAll() {
  const auto context = server_.NewStreamContext();
  for (const std::string& sensor : SensorsWithStreams(server_, settings_.pattern)) {
    const std::string name = StreamName(sensor);
    jsErrCode code{};
    if (!wanted_.contains(sensor)) {
      jsStreamInfo* kept = nullptr;
      if (js_GetStreamInfo(&kept, context.get(), name.c_str(), nullptr, &code) != NATS_OK) {
        return false;
      }
      wanted_[sensor] = kept->State.LastSeq;
      jsStreamInfo_Destroy(kept);
    }
    jsConsumerInfo* about = nullptr;
    if (js_GetConsumerInfo(&about, context.get(), name.c_str(), settings_.name.c_str(), nullptr,
                           &code) != NATS_OK) {
      return false;
    }
    const bool all = (about->NumPending == 0 && about->NumAckPending == 0) ||
                     about->AckFloor.Stream >= wanted_[sensor];
    jsConsumerInfo_Destroy(about);
    if (!all) return false;
  }
  return true;
}

std::map<std::string, Subscriber::Counts> Subscriber::counts() const {
  std::map<std::string, Counts> all;
  for (const auto& [sensor, input] : inputs_) all[sensor] = input.counts;
  return all;
}

}  // namespace tool::fleet
