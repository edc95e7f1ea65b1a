#include "fleet/Sender.h"

#include <fmt/core.h>

#include <algorithm>

#include "fleet/Names.h"

namespace tool::fleet {
namespace {

// Enough to keep a network and three disks busy.
constexpr const char* kMessageId = "Nats-Msg-Id";
constexpr std::size_t kMostOnTheWay = 64;
constexpr std::uint64_t kMostBytesOnTheWay = 16 << 20;
// What is kept of late, in case that it was acknowledged in vain.
constexpr std::size_t kMostDone = 4 * kMostOnTheWay;
constexpr std::chrono::seconds kDoubtful{3};
constexpr std::int64_t kAnswerMs = 4000;
constexpr std::chrono::milliseconds kSlice{5};
constexpr std::chrono::milliseconds kFirstPause{100};
constexpr unsigned kMostDoublings = 4;  // of that
constexpr unsigned kTroublesBeforeLook = 3;

std::string NameOf(const PacketHeader& header) {
  return fmt::format("{}.{}", header.run, header.sequence);
}

}  // namespace

Sender::Sender(const Server& server, Backlog& backlog, StreamSettings stream)
    : server_(server), backlog_(backlog), stream_(std::move(stream)) {
  jsOptions options;
  jsOptions_Init(&options);
  options.PublishAsync.MaxPending = 2 * kMostOnTheWay;
  options.PublishAsync.AckHandler = OnAnswer;
  options.PublishAsync.AckHandlerClosure = this;
  context_ = server_.NewStreamContext(&options);
  thread_ = std::thread([this] { Run(); });
}

Sender::~Sender() { Stop(); }

void Sender::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  Collect();
  for (auto oldest = on_the_way_.rbegin(); oldest != on_the_way_.rend(); ++oldest) {
    backlog_.PutBack(std::move(oldest->second));
  }
  on_the_way_.clear();
  context_.reset();
}

bool Sender::Drain(std::chrono::milliseconds patience) {
  const auto end = Clock::now() + patience;
  while (Clock::now() < end) {
    // In this order: what is taken out of the backlog is on its way a moment later.
    if (backlog_.counts().packets == 0 && counts().on_the_way == 0) {
      std::this_thread::sleep_for(2 * kSlice);
      if (backlog_.counts().packets == 0 && counts().on_the_way == 0) return true;
    }
    std::this_thread::sleep_for(kSlice);
  }
  return false;
}

Sender::Counts Sender::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

bool Sender::HasRoom() const {
  return on_the_way_.size() < kMostOnTheWay && bytes_on_the_way_ < kMostBytesOnTheWay;
}

void Sender::Trouble(const std::string& text) {
  not_before_ = Clock::now() + kFirstPause * (1 << std::min(troubles_, kMostDoublings));
  if (++troubles_ % kTroublesBeforeLook == 0) prepared_ = false;
  const std::lock_guard lock(mutex_);
  counts_.trouble = text;
}

bool Sender::Prepare() {
  try {
    RequireStream(server_, stream_);
    return prepared_ = true;
  } catch (const Failure& failure) {
    Trouble(failure.what());
    return false;
  }
}

void Sender::OnAnswer(jsCtx*, natsMsg* message, jsPubAck*, jsPubAckErr* bad, void* self) {
  const Message owner(message);
  auto& sender = *static_cast<Sender*>(self);
  const char* name = nullptr;
  natsMsgHeader_Get(message, kMessageId, &name);
  Answer answer{name == nullptr ? "" : name, ""};
  if (bad != nullptr) {
    const char* const text = bad->ErrText != nullptr ? bad->ErrText : natsStatus_GetText(bad->Err);
    answer.trouble = text;
  }
  const std::lock_guard lock(sender.mutex_);
  sender.answers_.push_back(std::move(answer));
  sender.answered_.notify_one();
}

void Sender::Collect() {
  std::deque<Answer> answers;
  {
    const std::lock_guard lock(mutex_);
    answers.swap(answers_);
  }
  for (const Answer& answer : answers) {
    const auto named = by_name_.find(answer.name);
    if (named == by_name_.end()) continue;  // acknowledged before
    if (!answer.trouble.empty()) {
      again_.insert(named->second);
      Trouble(answer.trouble);
      continue;
    }
    const auto found = on_the_way_.find(named->second);
    const std::uint64_t bytes = found->second.packet.payload.size();
    bytes_on_the_way_ -= bytes;
    const bool from_file = found->second.row != 0;
    again_.erase(named->second);
    Remember(found->first, std::move(found->second));
    on_the_way_.erase(found);
    by_name_.erase(named);
    troubles_ = 0;
    // All rows in front of the oldest one that is still on its way.
    if (from_file) {
      const auto next = std::find_if(on_the_way_.begin(), on_the_way_.end(),
                                     [](const auto& entry) { return entry.second.row != 0; });
      backlog_.DoneBefore(next == on_the_way_.end() ? last_row_ + 1 : next->second.row);
    }
    const std::lock_guard lock(mutex_);
    ++counts_.acknowledged;
    counts_.bytes += bytes;
    counts_.trouble.clear();
  }
  const std::lock_guard lock(mutex_);
  counts_.on_the_way = on_the_way_.size();
}

void Sender::Remember(Position position, Backlog::Taken taken) {
  const auto now = Clock::now();
  taken.row = 0;
  bytes_done_ += taken.packet.payload.size();
  done_.push_back({position, std::move(taken), now});
  while (done_.size() > kMostDone || bytes_done_ > kMostBytesOnTheWay ||
         now - done_.front().at > kDoubtful) {
    bytes_done_ -= done_.front().taken.packet.payload.size();
    done_.pop_front();
  }
}

// While it is being stopped, nats-server acknowledges messages that it does not store any more: the
// consumers of a stream end first, and without them nobody is interested. Whatever it did store it
// knows by name, and readers know by number.
void Sender::Doubt() {
  const auto now = Clock::now();
  const std::lock_guard lock(mutex_);
  for (Done& done : done_) {
    if (now - done.at > kDoubtful) continue;
    const std::uint64_t bytes = done.taken.packet.payload.size();
    bytes_on_the_way_ += bytes;
    --counts_.acknowledged;
    counts_.bytes -= bytes;
    by_name_[NameOf(done.taken.packet.header)] = done.position;
    again_.insert(done.position);
    on_the_way_.emplace(done.position, std::move(done.taken));
  }
  done_.clear();
  bytes_done_ = 0;
  counts_.on_the_way = on_the_way_.size();
}

// Up to which message of a run, whose next one is to be sent, everything is acknowledged.
std::uint64_t Sender::AcknowledgedIn(const std::string& run, std::uint64_t next) const {
  for (const auto& [position, taken] : on_the_way_) {
    if (taken.packet.header.run == run) return std::min(taken.packet.header.first(), next) - 1;
  }
  return next - 1;
}

bool Sender::Send(Position position) {
  const Packet& packet = on_the_way_.at(position).packet;
  const std::string subject = DataSubject(fleet::NameOf(packet.header.kind), stream_.sensor);
  natsMsg* made = nullptr;
  natsStatus status = natsMsg_Create(&made, subject.c_str(), nullptr,
                                     reinterpret_cast<const char*>(packet.payload.data()),
                                     static_cast<int>(packet.payload.size()));
  Message message(made);
  const auto put = [&](const char* name, const std::string& value) {
    if (status == NATS_OK) status = natsMsgHeader_Set(made, name, value.c_str());
  };
  ForEachHeader(packet.header, put);
  put(kSensorHeader, stream_.sensor);
  put(kAcknowledgedHeader,
      std::to_string(AcknowledgedIn(packet.header.run, packet.header.first())));
  const std::string name = NameOf(packet.header);
  jsPubOptions options;
  jsPubOptions_Init(&options);
  options.MsgId = name.c_str();
  options.MaxWait = kAnswerMs;
  if (status == NATS_OK) {
    natsMsg* given = message.release();
    status = js_PublishMsgAsync(context_.get(), &given, &options);
    message.reset(given);
  }
  if (status == NATS_OK) return true;
  Trouble(natsStatus_GetText(status));
  return false;
}

void Sender::Run() {
  while (!stop_) {
    Collect();
    const bool connected = server_.IsConnected();
    const std::uint64_t reconnects = server_.Reconnects();
    if (!connected || reconnects != reconnects_) Doubt();
    reconnects_ = reconnects;
    if (!connected) {
      const std::string error = server_.LastError();
      Trouble(error.empty() ? "no server can be reached"
                            : fmt::format("no server can be reached ({})", error));
      std::this_thread::sleep_for(kSlice);
      continue;
    }
    if (Clock::now() < not_before_ || (!prepared_ && !Prepare())) {
      std::this_thread::sleep_for(kSlice);
      continue;
    }
    while (!again_.empty() && Send(*again_.begin())) {
      again_.erase(again_.begin());
      const std::lock_guard lock(mutex_);
      ++counts_.sent_again;
    }
    if (!again_.empty()) continue;
    if (!HasRoom()) {
      std::unique_lock lock(mutex_);
      answered_.wait_for(lock, kSlice, [this] { return !answers_.empty(); });
      continue;
    }
    if (auto taken = backlog_.Take(kSlice)) {
      const Position position = next_++;
      bytes_on_the_way_ += taken->packet.payload.size();
      if (taken->row != 0) last_row_ = taken->row;
      by_name_[NameOf(taken->packet.header)] = position;
      on_the_way_.emplace(position, std::move(*taken));
      {
        const std::lock_guard lock(mutex_);
        counts_.on_the_way = on_the_way_.size();
      }
      if (!Send(position)) again_.insert(position);
    }
  }
}

}  // namespace tool::fleet
