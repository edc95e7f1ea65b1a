#include "fleet/Intake.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "fleet/Names.h"
#include "fleet/SendWindow.h"

namespace tool::fleet {
namespace {

// The server sends again what it has, after its own patience, more than once in this time.
constexpr std::chrono::seconds kHolePatience{30};
// A sensor that sends says something each second.
constexpr std::chrono::seconds kSilence{5};
constexpr std::chrono::seconds kLookPeriod{10};
constexpr std::chrono::seconds kFetchPause{2};
constexpr int kFetchedAtOnce = 64;

std::uint64_t StreamNumber(natsMsg* message) {
  jsMsgMetaData* about = nullptr;
  if (natsMsg_GetMetaData(&about, message) != NATS_OK) return 0;
  const std::uint64_t number = about->Sequence.Stream;
  jsMsgMetaData_Destroy(about);
  return number;
}

// The run that goes on; an empty one if none does.
RunOrder::Used Current(const std::map<std::string, RunOrder::Used>& known) {
  const auto current = std::find_if(known.begin(), known.end(),
                                    [](const auto& named) { return !named.second.over; });
  return current == known.end() ? RunOrder::Used{} : current->second;
}

}  // namespace

Intake::Intake(const Server& server, const std::string& sensor, const std::string& subscriber,
               const Place& place, const std::map<std::string, RunOrder::Used>& known)
    : server_(server),
      sensor_(sensor),
      subscriber_(subscriber),
      stream_(std::make_unique<Stream>(place.used)),
      runs_(known, known.empty() && place.used > 0),
      assembler_(sensor, Current(known).last_strip, Current(known).last_image),
      before_(place.ahead ? 0 : place.used),
      passed_over_(server, sensor, subscriber),
      came_at_(Clock::now()) {}

void Intake::Take(Message message, std::int64_t at_ns, Latency& latency) {
  came_at_ = Clock::now();
  const std::uint64_t number = StreamNumber(message.get());
  if (number == 0) return;  // no server has delivered it
  const bool had = stream_->Has(number);
  auto arrival = ArrivalIn(message, sensor_);
  if (!arrival && IsNewer(message.get())) {
    newer_ = fmt::format("{} sends messages of a newer version, which a newer program can store",
                         sensor_);
    return;
  }
  if (!arrival) {
    ++(had ? counts_.duplicates : counts_.damaged);
    natsMsg_Ack(message.get(), nullptr);
    if (!had) stream_->Add(number, std::nullopt, came_at_);
    return;
  }
  if (had && (IsAgain(number, *arrival) || !BeginAgain(number))) return;
  const PacketHeader& header = arrival->header;
  counts_.newest_ns = std::max(counts_.newest_ns, header.stamp_ns);
  const bool frames = header.kind == Kind::kStrips || header.kind == Kind::kImages;
  if (frames && header.stamp_ns > 0) latency.Add(at_ns - header.stamp_ns);
  open_[number] = SendWindow::NameOf(header);
  stream_->Add(number, std::move(arrival), came_at_);
}

// Whether a message with a number that was there is the one that was there.
bool Intake::IsAgain(std::uint64_t number, Arrival& arrival) {
  const std::string name = SendWindow::NameOf(arrival.header);
  const auto open = open_.find(number);
  if (open != open_.end() && open->second == name) {
    ++counts_.duplicates;  // it is acknowledged when it is stored
    return true;
  }
  if (!runs_.Has(arrival.header)) return false;
  ++counts_.duplicates;
  // What has been fetched and is not stored yet has to come once more.
  if (fetched_.contains(name)) return true;
  open_[number] = name;  // the answer was lost
  duplicates_.push_back(std::move(arrival.message));
  return true;
}

// The stream has begun again, or lost its end: its numbers stand for other messages now. False: not
// now; the message comes again.
bool Intake::BeginAgain(std::uint64_t number) {
  const auto place = PlaceNow();
  if (!place) return false;
  before_ = std::min(place->stored, number - 1);
  while (auto waiting = stream_->Take()) {
    std::vector<Arrival> duplicates;
    if (!*waiting) continue;
    auto steps = runs_.AddLate(std::move(**waiting), duplicates);
    Use(std::move(steps), std::move(duplicates));
  }
  stream_ = std::make_unique<Stream>(before_);
  // An answer to one of these would be one to another message now. They are not stored yet.
  for (const auto& [old, name] : open_) fetched_.insert(name);
  open_.clear();
  return true;
}

std::optional<Intake::Acknowledgements> Intake::PlaceNow() const {
  const auto context = server_.NewStreamContext();
  jsErrCode code{};
  jsConsumerInfo* about = nullptr;
  if (js_GetConsumerInfo(&about, context.get(), StreamName(sensor_).c_str(), subscriber_.c_str(),
                         nullptr, &code) != NATS_OK) {
    return std::nullopt;
  }
  const Acknowledgements place{about->AckFloor.Stream, about->NumAckPending};
  jsConsumerInfo_Destroy(about);
  return place;
}

// Whether the server waits for no answer but to what has come.
bool Intake::HasAllDelivered() const {
  const auto place = PlaceNow();
  return place && place->awaited <= static_cast<std::int64_t>(open_.size());
}

std::vector<Delivery> Intake::Advance() {
  const auto gone = [this] { return HasAllDelivered(); };
  while (true) {
    if (!next_) {
      auto next = stream_->Next(Clock::now(), kHolePatience, gone);
      if (!next) break;
      if (!*next) continue;
      next_ = std::move(**next);
    }
    if (runs_.Misses(*next_) && !FetchPassedOver()) break;
    std::vector<Arrival> duplicates;
    auto steps = runs_.Add(std::move(*next_), duplicates);
    next_.reset();
    Use(std::move(steps), std::move(duplicates));
  }
  return std::exchange(ready_, {});
}

void Intake::Use(std::vector<RunOrder::Step> steps, std::vector<Arrival> duplicates) {
  for (RunOrder::Step& step : steps) {
    if (!step.arrival && !step.run_is_over) ++counts_.unknown;
    for (Delivery& whole : assembler_.Add(std::move(step))) ready_.push_back(std::move(whole));
  }
  for (Arrival& duplicate : duplicates) {
    ++counts_.duplicates;
    natsMsg* const message = duplicate.message.get();
    if (fetched_.contains(NameIn(message))) {
      open_.erase(StreamNumber(message));
    } else {
      duplicates_.push_back(std::move(duplicate.message));
    }
  }
}

void Intake::Acknowledge(natsMsg* message) {
  const std::string name = NameIn(message);
  fetched_.erase(name);
  const auto open = open_.find(StreamNumber(message));
  if (open == open_.end() || open->second != name) return;
  natsMsg_Ack(message, nullptr);
  open_.erase(open);
}

std::optional<std::size_t> Intake::Held() const {
  if (next_ || !stream_->Empty()) return std::nullopt;
  return open_.size();
}

bool Intake::Look(std::optional<Clock::time_point> asked) {
  const auto now = Clock::now();
  if (now < fetch_at_ || next_ || !stream_->Empty()) return false;
  const bool silent = now - came_at_ > kSilence && now >= look_at_;
  if (!silent && !fetching_ && (!asked || HadAllSince(*asked))) return false;
  FetchPassedOver();
  return true;
}

// True: the server keeps nothing more that it has passed over. False: not all has been read yet.
bool Intake::FetchPassedOver() {
  if (Clock::now() < fetch_at_ || !server_.IsConnected()) return false;
  // What is behind comes later, or has come and waits.
  std::optional<std::uint64_t> before;
  if (next_) before = StreamNumber(next_->message.get());
  try {
    if (!fetching_ || before != before_round_) {
      round_at_ = Clock::now();
      passed_over_.Begin(before);
      before_round_ = before;
      found_ = 0;
      fetching_ = true;
    }
    for (int i = 0; i < kFetchedAtOnce && fetching_; ++i) {
      auto kept = passed_over_.Unchanged() ? std::nullopt : passed_over_.Next();
      fetching_ = kept.has_value();
      if (kept) UseKept(std::move(*kept));
    }
  } catch (const Failure& failure) {  // the cluster is choosing a leader: it will do later
    fetching_ = false;
    fetch_at_ = Clock::now() + kFetchPause;
    trouble_ = failure.what();
    return false;
  }
  if (fetching_) return false;
  trouble_.clear();
  fetch_at_ = Clock::now() + kFetchPause;
  look_at_ = Clock::now() + kLookPeriod;
  if (found_ == 0) had_all_at_ = round_at_;
  return true;
}

void Intake::UseKept(PassedOver::Kept kept) {
  auto arrival = ArrivalIn(kept.message, sensor_);
  if (!arrival || runs_.Has(arrival->header)) return;
  const bool for_others = kept.number <= before_ && !runs_.Knows(arrival->header.run);
  if (for_others && !passed_over_.WentBack()) return;
  ++found_;
  ++counts_.passed_over;
  fetched_.insert(SendWindow::NameOf(arrival->header));
  std::vector<Arrival> duplicates;
  auto steps = runs_.AddLate(std::move(*arrival), duplicates);
  Use(std::move(steps), std::move(duplicates));
}

}  // namespace tool::fleet
