#include "fleet/Dropped.h"

#include <cstring>

#include "Failure.h"

namespace tool::fleet {
namespace {

// What is lost with it: its frames, or those whose loss it told.
Gap LostWith(const Packet& packet) {
  Gap lost;
  if (packet.header.kind != Kind::kGap) {
    lost.Add(packet.header);
    return lost;
  }
  const auto* const text = reinterpret_cast<const char*>(packet.payload.data());
  try {
    lost.Add(GapIn(Json::parse(text, text + packet.payload.size(), nullptr, false)));
  } catch (const Failure&) {  // from a file that somebody has changed
    ++lost.others;
  }
  return lost;
}

bool Follows(const MissingFrames& before, const MissingFrames& next) {
  return !before.ids || !next.ids || (!before.to_end && next.ids->first >= before.ids->last);
}

}  // namespace

Dropped::Dropped(const Packet& first) {
  gap_.reason = Gap::kByStore;
  gap_.run = header_.run = first.header.run;
  header_.kind = Kind::kGap;
  header_.first_sequence = first.header.first();
  Add(first);
}

bool Dropped::Continues(const Packet& packet) const {
  const Gap lost = LostWith(packet);
  return packet.header.run == header_.run && packet.header.first() == header_.sequence + 1 &&
         Follows(gap_.strips, lost.strips) && Follows(gap_.images, lost.images);
}

void Dropped::Add(const Packet& packet) {
  gap_.Add(LostWith(packet));
  header_.sequence = packet.header.sequence;
  header_.stamp_ns = packet.header.stamp_ns;
}

Packet Dropped::ToPacket() const {
  const std::string text = ToJson(gap_).dump();
  Packet packet{header_, std::vector<std::byte>(text.size())};
  std::memcpy(packet.payload.data(), text.data(), text.size());
  packet.header.crc = Crc(text.data(), text.size());
  return packet;
}

}  // namespace tool::fleet
