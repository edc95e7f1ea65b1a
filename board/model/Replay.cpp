#include "model/Replay.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <utility>

#include "Clock.h"
#include "RealCalls.h"

namespace board {
namespace {

constexpr std::uint64_t kNothingComes = std::numeric_limits<std::uint64_t>::max();
// The counter starts this long before the first frame, as if the application had started then.
constexpr std::uint64_t kTicksBefore = 250'000'000;  // 5 s
constexpr int kFirstLooks = 500;
constexpr std::int64_t kLookEveryNs = 2'000'000;

}  // namespace

std::uint64_t TimeStampOf(const ring::Record& frame) {
  if (frame.payload.size() < kFrameHeaderBytes) return 0;
  const std::size_t header =
      frame.kind == ring::Kind::kImage ? frame.payload.size() - kFrameHeaderBytes : 0;
  std::uint64_t stamp = 0;
  std::memcpy(&stamp, &frame.payload[header + kTimeStampAt], sizeof stamp);
  return stamp;
}

std::unique_ptr<Replay> Replay::Open(std::string_view text) {
  std::istringstream words{std::string(text)};
  std::vector<ring::RecordRing> rings;
  for (unsigned i = 0; i < 4; ++i) {
    std::string path;
    words >> path;
    auto ring = ring::RecordRing::Open(path.c_str());
    if (!ring) return nullptr;
    rings.push_back(std::move(*ring));
  }
  double speed = 0;
  if (!(words >> speed) || !(speed >= 0)) return nullptr;
  return std::unique_ptr<Replay>(
      new Replay({Lane(std::move(rings[0])), Lane(std::move(rings[1])), Lane(std::move(rings[2]))},
                 std::move(rings[3]), speed));
}

Replay::Replay(std::array<Lane, 3> lanes, ring::RecordRing state, double speed)
    : lanes_(std::move(lanes)), state_(std::move(state)), speed_(speed) {
  FindFirst();
}

// The process at the other end has only just started to read its file.
void Replay::FindFirst() {
  std::uint64_t first = kNothingComes;
  for (const Stream stream : {kImages, kStrips}) {
    upcoming_[stream] = kNothingComes;
    in_hands_[stream] = kNothingComes;
    Lane& lane = lanes_[stream];
    for (int look = 0; look < kFirstLooks; ++look) {
      const bool ended = lane.ring.Ended();
      if (const auto found = lane.ring.At(lane.position)) {
        upcoming_[stream] = TimeStampOf(found->record);
        first = std::min<std::uint64_t>(first, upcoming_[stream]);
        break;
      }
      if (ended) break;
      const timespec pause = ToTimespec(kLookEveryNs);
      real::Nanosleep(&pause, nullptr);
    }
  }
  if (first == kNothingComes) first = 0;
  ticks_at_power_up_ = first - std::min(first, kTicksBefore);
}

std::vector<ring::Record> Replay::StartState() const {
  std::vector<ring::Record> state;
  auto position = state_.First();
  while (const auto found = state_.At(position)) {
    state.push_back(found->record);
    position = found->next;
  }
  return state;
}

bool Replay::Claim() { return lanes_[kEvents].ring.Claim(); }

std::optional<ring::Record> Replay::Next(Stream stream) {
  Lane& lane = lanes_[stream];
  const auto found = lane.ring.At(lane.position);
  if (!found) return std::nullopt;
  lane.behind = found->next;
  if (stream != kEvents) upcoming_[stream] = TimeStampOf(found->record);
  return found->record;
}

std::int64_t Replay::Wait(Stream stream, const ring::Record& record) {
  Lane& lane = lanes_[stream];
  if (stream == kEvents) {
    if (Ended(kImages) && Ended(kStrips) && Empty(kImages) && Empty(kStrips)) return 0;
    if (!lane.paced) return -1;
    if (record.stamp_ns <= lane.start_stamp_ns) return 0;
    if (speed_ == 0) return -1;
  }
  if (speed_ == 0) return 0;
  const std::int64_t now = MonotonicNs();
  if (!std::exchange(lane.paced, true)) {
    lane.start_ns = now;
    lane.start_stamp_ns = record.stamp_ns;
  }
  const double since = static_cast<double>(record.stamp_ns - lane.start_stamp_ns) / speed_;
  return std::max<std::int64_t>(0, lane.start_ns + static_cast<std::int64_t>(since) - now);
}

void Replay::Sent(const ring::Record& frame) {
  Lane& events = lanes_[kEvents];
  events.paced = true;
  events.start_ns = MonotonicNs();
  events.start_stamp_ns = frame.stamp_ns;
}

void Replay::Take(Stream stream, const ring::Record& record) {
  Lane& lane = lanes_[stream];
  const bool ended = lane.ring.Ended();  // before the look for the next
  if (stream != kEvents) {
    Return(stream);
    in_hands_[stream] = TimeStampOf(record);
  }
  lane.position = lane.behind;
  lane.ring.Release(lane.position);
  if (stream == kEvents || Next(stream)) return;
  // What is still to come is later than what was.
  upcoming_[stream] = ended ? kNothingComes : in_hands_[stream] + 1;
}

void Replay::Return(Stream stream) {
  const std::uint64_t stamp = in_hands_[stream].exchange(kNothingComes);
  if (stamp != kNothingComes) last_ = std::max<std::uint64_t>(last_, stamp);
}

std::uint64_t Replay::Ticks(std::uint64_t since_power_up) const {
  const std::uint64_t next = std::min({upcoming_[kImages].load(), upcoming_[kStrips].load(),
                                       in_hands_[kImages].load(), in_hands_[kStrips].load()});
  const std::uint64_t running = std::max<std::uint64_t>(ticks_at_power_up_ + since_power_up, last_);
  return next == 0 ? running : std::min(running, next - 1);
}

}  // namespace board
