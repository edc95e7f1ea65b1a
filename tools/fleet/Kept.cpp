#include "fleet/Kept.h"

#include <algorithm>

#include "fleet/Names.h"
#include "fleet/Stream.h"

namespace tool::fleet {
namespace {

std::optional<Kept> KeptOn(jsCtx* context, const std::string& stream) {
  jsErrCode code{};
  jsStreamInfo* about = nullptr;
  if (js_GetStreamInfo(&about, context, stream.c_str(), nullptr, &code) != NATS_OK) return {};
  const bool led = about->Cluster != nullptr && about->Cluster->Leader != nullptr;
  Kept kept{.messages = about->State.Msgs,
            .bytes = about->State.Bytes,
            .replicas = about->Config->Replicas,
            .leader = led ? about->Cluster->Leader : "",
            .unstored = {}};
  const std::int64_t subscribers = about->State.Consumers;
  jsStreamInfo_Destroy(about);
  jsConsumerInfoList* places = nullptr;
  const natsStatus status = js_Consumers(&places, context, stream.c_str(), nullptr, &code);
  if (status != NATS_OK && status != NATS_NOT_FOUND) return kept;
  const std::int64_t count = status == NATS_OK ? places->Count : 0;
  if (count == subscribers && (count > 0 || kept.messages == 0)) kept.unstored.emplace();
  for (std::int64_t i = 0; i < count && kept.unstored; ++i) {
    const jsConsumerInfo& place = *places->List[i];
    (*kept.unstored)[place.Name] =
        place.NumPending +
        static_cast<std::uint64_t>(std::max<std::int64_t>(place.NumAckPending, 0));
  }
  jsConsumerInfoList_Destroy(places);
  return kept;
}

}  // namespace

std::optional<std::uint64_t> Kept::MostUnstored() const {
  if (!unstored) return std::nullopt;
  std::uint64_t most = 0;
  for (const auto& [subscriber, count] : *unstored) most = std::max(most, count);
  return most;
}

Json ToJson(const Kept& kept) {
  return {{"messages", kept.messages},
          {"bytes", kept.bytes},
          {"unstored", kept.unstored ? Json(*kept.unstored) : Json()},
          {"replicas", kept.replicas},
          {"leader", kept.leader.empty() ? Json() : Json(kept.leader)}};
}

std::map<std::string, std::optional<Kept>> AllKept(const Server& server,
                                                   const std::string& pattern) {
  std::map<std::string, std::optional<Kept>> all;
  const auto context = server.NewStreamContext();
  for (const std::string& sensor : SensorsWithStreams(server, pattern)) {
    all[sensor] = KeptOn(context.get(), StreamName(sensor));
  }
  return all;
}

}  // namespace tool::fleet
