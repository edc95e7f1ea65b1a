#include "fleet/Sender.h"

#include <fmt/core.h>

#include <algorithm>

#include "fleet/Names.h"

namespace tool::fleet {
namespace {

constexpr const char* kMessageId = "Nats-Msg-Id";
constexpr std::int64_t kAnswerMs = 4000;
constexpr std::chrono::milliseconds kSendSlice{5};
// While no answer is awaited.
constexpr std::chrono::milliseconds kIdleSlice{50};
constexpr std::chrono::milliseconds kFirstPause{100};
constexpr unsigned kMostDoublings = 4;  // of that
constexpr unsigned kTroublesBeforeLook = 3;
constexpr std::chrono::seconds kTidyPeriod{60};
// For which nothing is sent, at most.
constexpr std::chrono::seconds kTidyPause{2};
// A server that comes back with an older state does not know streams that the others keep. A second
// one of the same name would ruin the first.
constexpr std::chrono::seconds kMissingPatience{60};

}  // namespace

Sender::Sender(Server& server, Backlog& backlog, StreamSettings stream)
    : server_(server),
      backlog_(backlog),
      stream_(std::move(stream)),
      trouble_at_(Clock::now()),
      tidier_(server, stream_.sensor),
      tidy_at_(trouble_at_ + kTidyPeriod) {
  Connect();
}

void Sender::Start() {
  thread_ = std::thread([this] { Run(); });
}

void Sender::Connect() {
  jsOptions options;
  jsOptions_Init(&options);
  options.PublishAsync.MaxPending = static_cast<int64_t>(2 * SendWindow::kMost);
  options.PublishAsync.AckHandler = OnAnswer;
  options.PublishAsync.AckHandlerClosure = this;
  context_ = server_.NewStreamContext(&options);
}

Sender::~Sender() { Stop(); }

void Sender::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  Collect();
  for (Backlog::Taken& taken : window_.Clear()) backlog_.PutBack(std::move(taken));
  context_.reset();
}

bool Sender::Drain(std::chrono::milliseconds patience) {
  const auto end = Clock::now() + patience;
  while (Clock::now() < end) {
    // In this order: what is taken out of the backlog is on its way a moment later.
    if (backlog_.counts().packets == 0 && counts().on_the_way == 0) {
      std::this_thread::sleep_for(2 * kSendSlice);
      if (backlog_.counts().packets == 0 && counts().on_the_way == 0) return true;
    }
    std::this_thread::sleep_for(kSendSlice);
  }
  return false;
}

Sender::Counts Sender::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

void Sender::Trouble(const std::string& text) {
  not_before_ = Clock::now() + kFirstPause * (1 << std::min(troubles_, kMostDoublings));
  if (++troubles_ % kTroublesBeforeLook == 0) prepared_ = false;
  trouble_at_ = Clock::now();
  const std::lock_guard lock(mutex_);
  counts_.trouble = text;
}

bool Sender::Prepare() {
  try {
    if (had_stream_ && !HasStream(server_, stream_.sensor)) {
      const auto now = Clock::now();
      missing_since_ = missing_since_.value_or(now);
      if (now - *missing_since_ < kMissingPatience) return prepared_ = true;
    }
    RequireStream(server_, stream_);
    missing_since_.reset();
    room_ = RoomOf(server_, stream_.sensor);
    return prepared_ = had_stream_ = true;
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
    if (!answer.trouble.empty()) {
      if (window_.Refuse(answer.name)) Trouble(answer.trouble);
      continue;
    }
    const auto acknowledged = window_.Acknowledge(answer.name, Clock::now());
    if (!acknowledged) continue;  // acknowledged before
    room_.used += acknowledged->bytes;
    troubles_ = 0;
    missing_since_.reset();
    if (acknowledged->rows_before != 0) backlog_.DoneBefore(acknowledged->rows_before);
    const std::lock_guard lock(mutex_);
    ++counts_.acknowledged;
    counts_.bytes += acknowledged->bytes;
    counts_.trouble.clear();
  }
  const std::lock_guard lock(mutex_);
  counts_.on_the_way = window_.size();
}

void Sender::Doubt() {
  const SendWindow::Doubted doubted = window_.Doubt(Clock::now());
  const std::lock_guard lock(mutex_);
  counts_.acknowledged -= doubted.messages;
  counts_.bytes -= doubted.bytes;
  counts_.on_the_way = window_.size();
}

bool Sender::Tidies() {
  const auto now = Clock::now();
  const bool full = room_.used >= room_.limit;
  if (!tidying_since_) {
    // Only after a quiet minute: while servers change, they may believe to be stored what is not.
    if (!full && (now < tidy_at_ || now - trouble_at_ < kTidyPeriod)) return false;
    tidy_at_ = now + kTidyPeriod;
    if (!full && !tidier_.IsNear()) return false;
    tidying_since_ = now;
  }
  // What was refused has to be stored first: subscribers wait for it.
  if (window_.size() > 0 || now < ask_at_) return true;
  ask_at_ = now + kIdleSlice;
  if (tidier_.RemoveIfStored()) {
    room_.used = 0;
    tidying_since_.reset();
  } else if (!full && Clock::now() - *tidying_since_ > kTidyPause) {
    tidying_since_.reset();
  } else if (full) {
    const std::lock_guard lock(mutex_);
    counts_.trouble = "the place on the server is full";
  }
  return tidying_since_.has_value();
}

bool Sender::Send(SendWindow::Position position) {
  const Packet& packet = window_.At(position);
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
  put(kAcknowledgedHeader, std::to_string(window_.AcknowledgedBefore(position)));
  const std::string name = SendWindow::NameOf(packet.header);
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

void Sender::WaitForAnswers() {
  std::unique_lock lock(mutex_);
  answered_.wait_for(lock, kSendSlice, [this] { return !answers_.empty(); });
}

void Sender::Run() {
  while (!stop_) {
    Collect();
    const bool connected = server_.IsConnected();
    const std::uint64_t reconnects = server_.Reconnects();
    if (!connected || reconnects != reconnects_) Doubt();
    reconnects_ = reconnects;
    if (!connected && server_.ReviveIfClosed()) {
      Connect();
      window_.RefuseAll();
    }
    if (!connected) {
      const std::string error = server_.LastError();
      Trouble(error.empty() ? "no server can be reached"
                            : fmt::format("no server can be reached ({})", error));
      std::this_thread::sleep_for(kSendSlice);
      continue;
    }
    if (Clock::now() < not_before_ || (!prepared_ && !Prepare())) {
      std::this_thread::sleep_for(kSendSlice);
      continue;
    }
    auto again = window_.NextAgain();
    for (; again && Send(*again); again = window_.NextAgain()) {
      window_.SentAgain(*again);
      const std::lock_guard lock(mutex_);
      ++counts_.sent_again;
    }
    if (again) continue;
    if (Tidies() || !window_.HasRoom()) {
      WaitForAnswers();
      continue;
    }
    if (auto taken = backlog_.Take(window_.size() == 0 ? kIdleSlice : kSendSlice)) {
      if (!window_.Admits(taken->packet.header)) {
        backlog_.PutBack(std::move(*taken));
        WaitForAnswers();
        continue;
      }
      const SendWindow::Position position = window_.Add(std::move(*taken));
      {
        const std::lock_guard lock(mutex_);
        counts_.on_the_way = window_.size();
      }
      if (!Send(position)) window_.SendAgain(position);
    }
  }
}

}  // namespace tool::fleet
