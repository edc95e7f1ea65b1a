#pragma once

#include "fleet/Gap.h"
#include "fleet/Packet.h"

namespace tool::fleet {

// Messages that were dropped one behind the other, and the gap that takes their numbers.
class Dropped {
 public:
  explicit Dropped(const Packet& first);

  // Whether a message may be added: it follows in the run, and its frame ids do, too. Else the
  // range of ids would name frames that are there.
  bool Continues(const Packet& packet) const;
  void Add(const Packet& packet);
  Packet ToPacket() const;

 private:
  Gap gap_;
  PacketHeader header_;
};

}  // namespace tool::fleet
