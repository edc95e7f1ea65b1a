#include "fleet/Assembler.h"

#include <cstring>
#include <utility>

#include "Failure.h"
#include "fleet/RecordJson.h"

namespace tool::fleet {
namespace {

constexpr int kMostDepth = 100;
// More than any sensor's image; a file takes a message of some hundred megabytes at most.
constexpr std::size_t kMostBytes = 64 << 20;

Json JsonIn(const Arrival& arrival) {
  const auto payload = arrival.payload();
  const auto* const text = reinterpret_cast<const char*>(payload.data());
  // What is deeper would take more of the stack than there is.
  const auto shallow = [](int depth, Json::parse_event_t, const Json&) {
    return depth <= kMostDepth;
  };
  return Json::parse(text, text + payload.size(), shallow, false);
}

// Whether a part of a buffer or an image is the one behind another.
bool Continues(const PacketHeader& before, const PacketHeader& part) {
  return part.part == before.part + 1 && part.parts == before.parts && part.kind == before.kind &&
         part.run == before.run;
}

}  // namespace

Delivery Assembler::NewDelivery(const std::string& run, std::uint64_t sequence,
                                std::int64_t stamp_ns) const {
  Delivery delivery;
  delivery.sensor = sensor_;
  delivery.run = run;
  delivery.sequence = sequence;
  delivery.stamp_ns = stamp_ns;
  return delivery;
}

Delivery Assembler::GapOf(Gap gap, std::uint64_t sequence, std::int64_t stamp_ns) const {
  Delivery delivery = NewDelivery(gap.run, sequence, stamp_ns);
  delivery.gap = std::move(gap);
  return delivery;
}

// The frames behind the last ones that came, however many there were.
Gap Assembler::NewGap(const char* reason, const std::string& run) const {
  Gap gap{.reason = reason, .run = run};
  gap.strips = {Range{last_strip_ + 1, last_strip_ + 1}, 1, true};
  gap.images = {Range{last_image_ + 1, last_image_ + 1}, 1, true};
  return gap;
}

void Assembler::GiveUp(std::vector<Delivery>& whole) {
  if (parts_.empty()) return;
  Gap gap{.reason = Gap::kUnknown, .run = parts_.front().header.run};
  for (const Arrival& part : parts_) gap.Add(part.header);
  if (parts_.front().header.kind == Kind::kImages) gap.images.count = 1;
  Delivery delivery =
      GapOf(std::move(gap), parts_.back().header.sequence, parts_.back().header.stamp_ns);
  for (Arrival& part : parts_) delivery.messages.push_back(std::move(part.message));
  Clear();
  whole.push_back(std::move(delivery));
}

void Assembler::Clear() {
  parts_.clear();
  bytes_ = 0;
}

void Assembler::AddPart(Arrival arrival, std::vector<Delivery>& whole) {
  if (!parts_.empty() && !Continues(parts_.back().header, arrival.header)) GiveUp(whole);
  // Its beginning is in a hole.
  if (arrival.header.part != parts_.size() + 1) {
    parts_.push_back(std::move(arrival));
    GiveUp(whole);
    return;
  }
  bytes_ += arrival.payload().size();
  parts_.push_back(std::move(arrival));
  if (bytes_ > kMostBytes) return GiveUp(whole);
  const PacketHeader& last = parts_.back().header;
  if (last.part != last.parts) return;
  Delivery delivery = NewDelivery(last.run, last.sequence, last.stamp_ns);
  std::size_t size = 0;
  for (const Arrival& part : parts_) size += part.payload().size();
  delivery.bytes.reserve(size);
  for (Arrival& part : parts_) {
    const auto payload = part.payload();
    delivery.bytes.insert(delivery.bytes.end(), payload.begin(), payload.end());
    delivery.strips += part.header.strips;
    if (part.header.frames) {
      delivery.last_id = part.header.frames->last;
      (last.kind == Kind::kImages ? last_image_ : last_strip_) = delivery.last_id;
    }
  }
  if (last.kind == Kind::kStrips) {
    delivery.record = {ring::Kind::kStrips, last.stamp_ns, delivery.strips, last.point_bytes, {}};
  } else {
    delivery.record = {ring::Kind::kImage, last.stamp_ns, last.width, last.height, {}};
    delivery.images = 1;
  }
  for (Arrival& part : parts_) delivery.messages.push_back(std::move(part.message));
  Clear();
  whole.push_back(std::move(delivery));
}

void Assembler::Read(const Arrival& arrival, Delivery& delivery) {
  const PacketHeader& header = arrival.header;
  if (header.kind == Kind::kGap) {
    delivery.gap = GapIn(JsonIn(arrival));
  } else if (header.kind != Kind::kStatistics && header.kind != Kind::kEnd) {
    delivery.record = RecordIn(header.kind, header.stamp_ns, JsonIn(arrival), delivery.text);
  }
}

std::vector<Delivery> Assembler::Add(RunOrder::Step step) {
  std::vector<Delivery> whole;
  if (!step.arrival) {
    GiveUp(whole);
    const char* const reason = step.run_is_over ? Gap::kByPublisher : Gap::kUnknown;
    whole.push_back(GapOf(NewGap(reason, step.run), step.hole.last, stamp_ns_));
    whole.back().run_is_over = step.run_is_over;
    if (step.run_is_over) last_strip_ = last_image_ = 0;
    return whole;
  }
  Arrival& arrival = *step.arrival;
  const PacketHeader& header = arrival.header;
  stamp_ns_ = header.stamp_ns;
  if (header.kind == Kind::kStrips || header.kind == Kind::kImages) {
    AddPart(std::move(arrival), whole);
    return whole;
  }
  GiveUp(whole);
  Delivery delivery = NewDelivery(header.run, header.sequence, header.stamp_ns);
  try {
    Read(arrival, delivery);
  } catch (const Failure&) {  // one sensor's nonsense must not keep the others' frames
    delivery.damaged = true;
    delivery.gap = Gap{.reason = Gap::kUnknown, .run = header.run, .others = 1};
  }
  delivery.run_is_over = header.kind == Kind::kEnd;
  if (delivery.run_is_over) last_strip_ = last_image_ = 0;
  delivery.messages.push_back(std::move(arrival.message));
  whole.push_back(std::move(delivery));
  return whole;
}

}  // namespace tool::fleet
