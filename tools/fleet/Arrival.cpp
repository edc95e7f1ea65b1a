#include "fleet/Arrival.h"

#include <cstdlib>

#include "fleet/Names.h"
#include "fleet/SendWindow.h"

namespace tool::fleet {
namespace {

GetHeader HeadersOf(natsMsg* message) {
  return [message](const char* name) -> std::string {
    const char* value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK ? value : "";
  };
}

}  // namespace

std::string NameIn(natsMsg* message) {
  const auto header = ReadHeaders(HeadersOf(message));
  return header ? SendWindow::NameOf(*header) : "";
}

bool IsNewer(natsMsg* message) { return IsNewer(HeadersOf(message)); }

std::optional<Arrival> ArrivalIn(Message& message, std::string_view sensor) {
  const GetHeader get = HeadersOf(message.get());
  auto header = ReadHeaders(get);
  if (!header) return std::nullopt;
  // Only this sensor may write there; what is under another subject has been led astray.
  if (natsMsg_GetSubject(message.get()) != DataSubject(NameOf(header->kind), sensor)) {
    return std::nullopt;
  }
  Arrival arrival{nullptr, std::move(*header),
                  std::strtoull(get(kAcknowledgedHeader).c_str(), nullptr, 10)};
  if (Crc(natsMsg_GetData(message.get()),
          static_cast<std::size_t>(natsMsg_GetDataLength(message.get()))) != arrival.header.crc) {
    return std::nullopt;
  }
  arrival.message = std::move(message);
  return arrival;
}

}  // namespace tool::fleet
