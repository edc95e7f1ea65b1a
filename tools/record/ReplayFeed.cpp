#include "record/ReplayFeed.h"

#include <fmt/format.h>

#include <algorithm>

#include "Failure.h"
#include "record/DeviceNotes.h"
#include "record/RegisterValues.h"

namespace tool {
namespace {

using ring::Kind;
using ring::Record;

constexpr std::chrono::milliseconds kLookAgain{2};
// Between the end of one round and the beginning of the next.
constexpr std::int64_t kRoundGapNs = 10'000'000;

BagReader Read(const BagSource& source) {
  return BagReader(source.path, Database::Mode::kRead, source.sensor);
}

}  // namespace

ReplayFeed::ReplayFeed(const Settings& settings)
    : settings_(settings),
      images_(rings_.images, {Topic::kImages}),
      strips_(rings_.strips, {Topic::kStrips}),
      events_(rings_.events, {Topic::kEvents, Topic::kRegisters}) {
  const BagReader reader = Read(settings_.source);
  BagQuery frames(reader, {Topic::kImages, Topic::kStrips}, settings_.range);
  const auto first = frames.Next();
  if (!first) {
    throw Failure(ExitCode::kUsage, fmt::format("{} has no frames there", settings_.source.path),
                  "\"tessaline bag info\" shows what it holds");
  }
  first_ns_ = first->stamp_ns;
  ReadState(reader);
  for (Lane* const lane : {&images_, &strips_, &events_}) {
    lane->thread = std::thread([this, lane] {
      try {
        Feed(*lane);
      } catch (...) {
        lane->failure = std::current_exception();
        lane->failed = true;
      }
      lane->ring.End();
    });
  }
}

ReplayFeed::~ReplayFeed() {
  stop_ = true;
  for (Lane* const lane : {&images_, &strips_, &events_}) lane->thread.join();
}

// What was true when the first frame came; what the recording learnt later about the device too.
void ReplayFeed::ReadState(const BagReader& reader) {
  DeviceNotes notes;
  BagQuery device(reader, {Topic::kDevice});
  while (const auto message = device.Next()) notes.Add(message->As<DeviceMessage>().json);
  model_ = notes.Text("model").value_or("");

  RegisterValues values(settings_.source.path);
  BagQuery registers(reader, {Topic::kRegisters}, {.last = first_ns_});
  while (const auto message = registers.Next()) values.Set(message->As<RegisterMessage>());
  for (const auto& [address, last] : values.all()) {
    rings_.state.Put({Kind::kRegister, first_ns_, address, last.value, {}});
  }
  const std::vector<std::uint8_t> eeprom = notes.Eeprom();
  if (!eeprom.empty()) {
    rings_.state.Put({Kind::kDevice, first_ns_, 0, 0, std::as_bytes(std::span(eeprom))});
  }
}

bool ReplayFeed::Put(Lane& lane, const Record& record) {
  while (!lane.ring.HasRoom(record.payload.size())) {
    if (stop_) return false;
    std::this_thread::sleep_for(kLookAgain);
  }
  return lane.ring.Put(record);
}

void ReplayFeed::Feed(Lane& lane) {
  std::int64_t later_ns = 0;
  for (unsigned round = 0; (settings_.times == 0 || round < settings_.times) && !stop_; ++round) {
    if (!FeedOnce(lane, round * later_ns)) return;
    if (round > 0) continue;
    const BagReader reader = Read(settings_.source);
    const auto stamps = StampsOf(reader);
    later_ns = std::min(stamps->last, settings_.range.last) - first_ns_ + kRoundGapNs;
  }
}

bool ReplayFeed::FeedOnce(Lane& lane, std::int64_t later_ns) {
  bool any = false;
  const BagReader reader = Read(settings_.source);
  BagQuery messages(reader, lane.topics, settings_.range);
  while (const auto message = messages.Next()) {
    const std::int64_t stamp = message->stamp_ns + later_ns;
    Record record;
    std::uint64_t frames = 0;
    if (message->topic == Topic::kStrips) {
      const auto strips = message->As<StripsMessage>();
      record = {Kind::kStrips, stamp, strips.strips, strips.point_bytes, strips.data};
      frames = strips.strips;
    } else if (message->topic == Topic::kImages) {
      const auto image = message->As<ImageMessage>();
      record = {Kind::kImage, stamp, image.width, image.height, image.data};
      frames = 1;
    } else if (message->topic == Topic::kRegisters) {
      const auto reg = message->As<RegisterMessage>();
      record = {Kind::kRegister, stamp, reg.address, reg.value, {}};
    } else {
      const auto event = message->As<EventMessage>();
      record = {event.name == kTriggerEvent ? Kind::kTrigger : Kind::kDaArrived,
                stamp,
                event.value,
                0,
                {}};
    }
    if (record.payload.size() > lane.ring.Bytes() / 2) {
      throw Failure(ExitCode::kFile, fmt::format("{}: a frame of {} bytes is none of a sensor",
                                                 settings_.source.path, record.payload.size()));
    }
    if (!Put(lane, record)) return false;
    lane.frames += frames;
    any = true;
  }
  return any;
}

std::uint64_t ReplayFeed::Waiting(const Lane& lane) {
  std::uint64_t frames = 0;
  auto position = lane.ring.First();
  while (const auto found = lane.ring.At(position)) {
    if (found->record.kind == Kind::kStrips) frames += found->record.first;
    if (found->record.kind == Kind::kImage) ++frames;
    position = found->next;
  }
  return frames;
}

ReplayFeed::Counts ReplayFeed::Played() const {
  const auto played = [](const Lane& lane) {
    const std::uint64_t waiting = Waiting(lane);
    return lane.frames - std::min<std::uint64_t>(waiting, lane.frames);
  };
  return {played(strips_), played(images_)};
}

bool ReplayFeed::Over() const {
  return images_.ring.Ended() && strips_.ring.Ended() && images_.ring.UsedBytes() == 0 &&
         strips_.ring.UsedBytes() == 0;
}

bool ReplayFeed::Idle() const {
  if (!Begun()) return false;
  for (const Lane* const lane : {&images_, &strips_}) {
    const bool taken = lane->ring.First() > 0;
    if (taken && !(lane->ring.Ended() && lane->ring.UsedBytes() == 0)) return false;
  }
  return true;
}

void ReplayFeed::Check() const {
  for (const Lane* const lane : {&images_, &strips_, &events_}) {
    if (lane->failed) std::rethrow_exception(lane->failure);
  }
}

}  // namespace tool
