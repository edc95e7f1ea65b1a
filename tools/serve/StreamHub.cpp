#include "serve/StreamHub.h"

#include <algorithm>
#include <utility>

namespace tool::serve {

void StreamCounts::Add(const StreamCounts& more) {
  sent += more.sent;
  sent_bytes += more.sent_bytes;
  dropped += more.dropped;
  dropped_bytes += more.dropped_bytes;
}

StreamClient::StreamClient(Stream stream, double rate, std::string peer)
    : stream_(stream),
      rate_(rate),
      period_(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / rate))),
      peer_(std::move(peer)) {}

// Messages come when others want them, too, so half a period early is in time.
bool StreamClient::IsDue(Clock::time_point now) const { return now >= due_ - period_ / 2; }

void StreamClient::Offer(const Message& message, Clock::time_point now) {
  if (!IsDue(now)) return;
  due_ = std::max(due_ + period_, now);
  if (!sending_) {
    sending_ = true;
    Send(message);
    return;
  }
  if (const Message old = std::exchange(waiting_, message)) {
    ++counts_.dropped;
    counts_.dropped_bytes += old->size();
  }
}

void StreamClient::Sent(std::size_t bytes) {
  ++counts_.sent;
  counts_.sent_bytes += bytes;
  sending_ = waiting_ != nullptr;
  if (sending_) Send(std::exchange(waiting_, nullptr));
}

unsigned StreamHub::Add(const std::shared_ptr<StreamClient>& client) {
  clients_.emplace(next_id_, client);
  TellRate();
  return next_id_++;
}

void StreamHub::Remove(unsigned id) {
  const auto found = clients_.find(id);
  if (found == clients_.end()) return;
  if (const auto client = found->second.lock()) gone_[client->stream()].Add(client->counts());
  clients_.erase(found);
  TellRate();
}

void StreamHub::Publish(Stream stream, const StreamClient::Message& message) {
  const auto now = StreamClient::Clock::now();
  const Clients clients = clients_;  // one may end meanwhile
  for (const auto& [id, weak] : clients) {
    const auto client = weak.lock();
    if (client && client->stream() == stream) client->Offer(message, now);
  }
}

bool StreamHub::WantsNow(Stream stream) const {
  const auto now = StreamClient::Clock::now();
  return std::any_of(clients_.begin(), clients_.end(), [&](const auto& entry) {
    const auto client = entry.second.lock();
    return client && client->stream() == stream && client->IsDue(now);
  });
}

StreamCounts StreamHub::counts(Stream stream) const {
  StreamCounts all;
  if (const auto gone = gone_.find(stream); gone != gone_.end()) all = gone->second;
  for (const auto& [id, weak] : clients_) {
    const auto client = weak.lock();
    if (client && client->stream() == stream) all.Add(client->counts());
  }
  return all;
}

void StreamHub::TellRate() const {
  double most = 0;
  for (const auto& [id, weak] : clients_) {
    const auto client = weak.lock();
    if (client && client->stream() != Stream::kState) most = std::max(most, client->rate());
  }
  set_rate_(most);
}

}  // namespace tool::serve
