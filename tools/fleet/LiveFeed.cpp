#include "fleet/LiveFeed.h"

#include <utility>

#include "fleet/Names.h"

namespace tool::fleet {

LiveFeed::LiveFeed(const Server& server, const std::string& sensor)
    : sensor_(sensor), assembler_(sensor) {
  natsSubscription* made = nullptr;
  const std::string subject = DataSubject("*", sensor);
  Check(natsConnection_Subscribe(&made, server.connection(), subject.c_str(), OnMessage, this),
        subject);
  subscription_.reset(made);
}

LiveFeed::Counts LiveFeed::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

void LiveFeed::OnMessage(natsConnection*, natsSubscription*, natsMsg* message, void* self) {
  Message owner(message);
  auto& feed = *static_cast<LiveFeed*>(self);
  auto arrival = ArrivalIn(owner, feed.sensor_);
  if (!arrival) return;
  const std::lock_guard lock(feed.mutex_);
  feed.Use(std::move(*arrival));
}

// What is sent again comes too late for those who watch.
void LiveFeed::Use(Arrival arrival) {
  const PacketHeader& header = arrival.header;
  if (header.run != run_) last_ = 0;
  if (header.sequence <= last_) return;
  run_ = header.run;
  last_ = header.sequence;
  RunOrder::Step step{std::move(arrival), run_};
  for (Delivery& delivery : assembler_.Add(std::move(step))) Put(std::move(delivery));
}

void LiveFeed::Put(Delivery delivery) {
  if (!delivery.record) return;
  ring::Record record = *delivery.record;
  record.payload = delivery.bytes;
  ring::RecordRing* ring = nullptr;
  if (record.kind == ring::Kind::kStrips) ring = &rings_.strips;
  if (record.kind == ring::Kind::kImage) ring = &rings_.images;
  if (record.kind == ring::Kind::kTrigger || record.kind == ring::Kind::kDaArrived) {
    ring = &rings_.events;
  }
  if (ring == nullptr) return;
  const std::uint64_t frames = delivery.strips + delivery.images;
  if (record.payload.size() > ring->Bytes() / 2 || !ring->HasRoom(record.payload.size()) ||
      !ring->Put(record)) {
    counts_.left_out += frames;
    return;
  }
  counts_.strips += delivery.strips;
  counts_.images += delivery.images;
}

}  // namespace tool::fleet
