#include "fleet/Subscriber.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "HostClock.h"
#include "fleet/Names.h"
#include "fleet/Stream.h"

namespace tool::fleet {
namespace {

constexpr std::chrono::seconds kLookPeriod{2};
constexpr std::chrono::milliseconds kSyncPeriod{200};
constexpr std::uint64_t kMostUnsynced = 32 << 20;
constexpr std::uint64_t kMostWaiting = 512 << 20;
// Of one sensor: the server sends on while the disk works.
constexpr std::int64_t kMostWritten = kMostUnstored / 4;
constexpr std::chrono::seconds kBoundPatience{10};
// Behind the name of a run in the file: nothing more is to come of it.
constexpr std::string_view kOver = "over";
// Likewise: its last frame.
constexpr std::string_view kStrip = "strip";
constexpr std::string_view kImage = "image";

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
      break;                      // those that are there need not wait for it
    }
  }
  next_look_ = Clock::now() + kLookPeriod;
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
  Intake::Place place{about->AckFloor.Stream};
  const bool bound = about->PushBound;
  jsConsumerInfo_Destroy(about);
  if (bound) return RequireUnbound(sensor);
  jsStreamInfo* kept = nullptr;
  Check(js_GetStreamInfo(&kept, context.get(), stream.c_str(), nullptr, &code), stream);
  place.ahead = place.used > kept->State.LastSeq;
  place.used = std::max(place.used, std::max<std::uint64_t>(kept->State.FirstSeq, 1) - 1);
  jsStreamInfo_Destroy(kept);
  order_.Join(sensor);
  Intake intake(server_, sensor, settings_.name, place, RunsOf(sensor));
  Input& input = inputs_.emplace(sensor, Input{nullptr, std::move(intake)}).first->second;

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
  input.subscription.reset(made);
  natsSubscription_SetPendingLimits(made, -1, -1);
}

// What the file has.
std::map<std::string, RunOrder::Used> Subscriber::RunsOf(const std::string& sensor) const {
  std::map<std::string, RunOrder::Used> runs;
  for (const auto& [key, sequence] : file_.positions()) {
    if (key.sensor != sensor) continue;
    const auto named = [&, run = std::string_view(key.run)](std::string_view what) {
      return run.ends_with(what) ? &runs[std::string(run.substr(0, run.size() - what.size()))]
                                 : nullptr;
    };
    if (auto* const over = named(kOver)) {
      over->over = true;
    } else if (auto* const strip = named(kStrip)) {
      strip->last_strip = sequence;
    } else if (auto* const image = named(kImage)) {
      image->last_image = sequence;
    } else {
      runs[key.run].last = sequence;
    }
  }
  return runs;
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
  Message owner(message);
  const auto bytes = static_cast<std::uint64_t>(natsMsg_GetDataLength(message));
  const std::lock_guard lock(from.subscriber->mutex_);
  // While a disk hangs, the server sends the same again and again.
  if (from.subscriber->came_bytes_ + bytes > kMostWaiting) return;
  from.subscriber->came_bytes_ += bytes;
  from.subscriber->came_.push_back({std::move(owner), from.sensor, HostNs()});
  from.subscriber->arrived_.notify_one();
}

void Subscriber::Work(std::chrono::milliseconds patience) {
  if (Clock::now() >= next_look_) LookForSensors();
  std::deque<Came> came;
  {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, patience, [this] { return !came_.empty(); });
    came.swap(came_);
    came_bytes_ = 0;
  }
  for (Came& one : came) {
    inputs_.at(one.sensor).intake.Take(std::move(one.message), one.at_ns, latency_);
  }
  if (server_.IsClosed()) {
    throw Failure(ExitCode::kUnreachable,
                  fmt::format("{} does not let us in any more", server_.Where()),
                  "start again when it does: the file is continued");
  }
  const bool interrupted = !server_.IsConnected();
  for (auto& [sensor, input] : inputs_) {
    if (interrupted) input.intake.Interrupted();
    for (Delivery& delivery : input.intake.Advance()) order_.Add(std::move(delivery));
    for (Message& message : input.intake.TakeDuplicates()) {
      AcknowledgeAfterSync(input, std::move(message));
    }
  }
  for (auto& [sensor, input] : inputs_) {
    // One at a time, so that the others need not wait.
    if (interrupted || input.intake.Look(delivered_at_)) break;
  }
  while (auto delivery = order_.Take()) Store(std::move(*delivery));
  CommitIfDue();
}

void Subscriber::Store(Delivery delivery) {
  Input& input = inputs_.at(delivery.sensor);
  Intake::Counts& counts = input.intake.counts();
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
  const auto note = [&](std::string_view what, std::uint64_t number) {
    file_.SetPosition(delivery.sensor, fmt::format("{}{}", delivery.run, what), number);
  };
  if (delivery.run_is_over) note(kOver, 1);
  if (delivery.last_id > 0) note(delivery.images > 0 ? kImage : kStrip, delivery.last_id);
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
    input->intake.Acknowledge(message.get());
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
    return named.second.intake.HadAllSince(*delivered_at_);
  });
}

// Up to what was the last message of each sensor when this was asked first.
bool Subscriber::HasDeliveredAll() {
  const auto context = server_.NewStreamContext();
  for (const std::string& sensor : SensorsNow()) {
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
    const auto input = inputs_.find(sensor);
    const auto held = input == inputs_.end() ? std::nullopt : input->second.intake.Held();
    const bool all = about->AckFloor.Stream >= wanted_[sensor] ||
                     (about->NumPending == 0 &&
                      about->NumAckPending <= static_cast<std::int64_t>(held.value_or(0)));
    jsConsumerInfo_Destroy(about);
    if (!all) return false;
  }
  return true;
}

std::map<std::string, Intake::Counts> Subscriber::counts() const {
  std::map<std::string, Intake::Counts> all;
  for (const auto& [sensor, input] : inputs_) all[sensor] = input.intake.counts();
  return all;
}

std::string Subscriber::trouble() const {
  if (!trouble_.empty()) return trouble_;
  for (const auto& [sensor, input] : inputs_) {
    if (!input.intake.trouble().empty()) return input.intake.trouble();
  }
  return {};
}

}  // namespace tool::fleet
