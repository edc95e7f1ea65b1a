#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "fleet/Nats.h"
#include "fleet/Packet.h"

namespace tool::fleet {

// A message as it came from the server.
struct Arrival {
  Message message;
  PacketHeader header;
  std::uint64_t acknowledged = 0;  // of its run, when it was sent

  std::span<const std::byte> payload() const {
    return {reinterpret_cast<const std::byte*>(natsMsg_GetData(message.get())),
            static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))};
  }
};

// None: it is not one of ours, or its bytes are not what was sent.
std::optional<Arrival> ArrivalIn(Message& message, std::string_view sensor);
// The publisher's name for it, as SendWindow::NameOf() has it; empty: it is not one of ours.
std::string NameIn(natsMsg* message);
// Whether a newer program could read it.
bool IsNewer(natsMsg* message);

}  // namespace tool::fleet
