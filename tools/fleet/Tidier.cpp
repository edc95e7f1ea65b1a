#include "fleet/Tidier.h"

#include <algorithm>

#include "fleet/Names.h"

namespace tool::fleet {
namespace {

constexpr std::chrono::seconds kPeriod{2};
// What a server believes to be stored may be wrong: see PassedOver. A subscriber notices it in this
// time.
constexpr std::chrono::seconds kGrace{60};

constexpr std::int64_t kAnswerMs = 1000;

}  // namespace

Tidier::Tidier(const Server& server, const std::string& sensor)
    : server_(server), stream_(StreamName(sensor)), thread_([this] { Run(); }) {}

Tidier::~Tidier() { Stop(); }

void Tidier::Stop() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
    stopped_.notify_one();
  }
  if (thread_.joinable()) thread_.join();
}

void Tidier::Run() {
  std::unique_lock lock(mutex_);
  while (!stopped_.wait_for(lock, kPeriod, [this] { return stop_; })) {
    lock.unlock();
    if (server_.IsConnected()) Tidy();
    lock.lock();
  }
}

void Tidier::Tidy() {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kAnswerMs;
  const auto context = server_.NewStreamContext(&options);
  const auto now = Clock::now();
  const auto kept = KeptOn(context.get());
  if (!kept) return;
  stored_.push_back({now, kept->stored});
  std::uint64_t to = 0;
  for (; !stored_.empty() && now - stored_.front().at >= kGrace; stored_.pop_front()) {
    to = stored_.front().number;
  }
  if (kept->half_full) to = kept->stored;
  // The last one stays: an empty stream may forget its numbers.
  to = std::min(to, kept->last);
  if (to <= kept->first) return;
  options.Stream.Purge.Sequence = to;
  jsErrCode code{};
  js_PurgeStream(context.get(), stream_.c_str(), &options, &code);
}

std::optional<Tidier::Kept> Tidier::KeptOn(jsCtx* context) const {
  jsErrCode code{};
  // In this order: what comes in between has not been stored by anybody yet.
  jsConsumerInfoList* places = nullptr;
  if (js_Consumers(&places, context, stream_.c_str(), nullptr, &code) != NATS_OK) return {};
  Kept kept{0, 0, UINT64_MAX, false};
  for (int i = 0; i < places->Count; ++i) {
    kept.stored = std::min<std::uint64_t>(kept.stored, places->List[i]->AckFloor.Stream);
  }
  const std::int64_t count = places->Count;
  jsConsumerInfoList_Destroy(places);
  jsStreamInfo* stream = nullptr;
  if (js_GetStreamInfo(&stream, context, stream_.c_str(), nullptr, &code) != NATS_OK) return {};
  kept.first = stream->State.FirstSeq;
  kept.last = stream->State.LastSeq;
  const std::int64_t most = stream->Config->MaxBytes;
  kept.half_full = most > 0 && stream->State.Bytes > static_cast<std::uint64_t>(most) / 2;
  const bool all = count > 0 && count == stream->State.Consumers;  // not those without a leader
  jsStreamInfo_Destroy(stream);
  // A place ahead of its stream has not seen what the stream has.
  if (!all || kept.stored > kept.last) return {};
  return kept;
}

}  // namespace tool::fleet
