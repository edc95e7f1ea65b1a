#include "fleet/Tidier.h"

#include <algorithm>

#include "fleet/Names.h"

namespace tool::fleet {
namespace {

constexpr std::int64_t kAnswerMs = 1000;
constexpr std::uint64_t kNear = 500;  // messages

jsOptions Impatient() {
  jsOptions options;
  jsOptions_Init(&options);
  options.Wait = kAnswerMs;
  return options;
}

}  // namespace

Tidier::Tidier(const Server& server, const std::string& sensor)
    : server_(server), stream_(StreamName(sensor)) {}

bool Tidier::IsNear() const {
  const jsOptions options = Impatient();
  const auto kept = KeptNow(server_.NewStreamContext(&options).get());
  return kept && kept->messages > 0 && kept->unstored <= kNear && !kept->ahead;
}

bool Tidier::RemoveIfStored() const {
  jsOptions options = Impatient();
  const auto context = server_.NewStreamContext(&options);
  const auto kept = KeptNow(context.get());
  if (!kept || kept->unstored > 0 || kept->ahead) return false;
  options.Stream.Purge.Sequence = kept->last + 1;
  jsErrCode code{};
  return js_PurgeStream(context.get(), stream_.c_str(), &options, &code) == NATS_OK;
}

std::optional<Tidier::Kept> Tidier::KeptNow(jsCtx* context) const {
  jsErrCode code{};
  jsStreamInfo* stream = nullptr;
  if (js_GetStreamInfo(&stream, context, stream_.c_str(), nullptr, &code) != NATS_OK) return {};
  Kept kept{.last = stream->State.LastSeq, .messages = stream->State.Msgs};
  const std::int64_t count = stream->State.Consumers;
  jsStreamInfo_Destroy(stream);
  jsConsumerInfoList* places = nullptr;
  if (js_Consumers(&places, context, stream_.c_str(), nullptr, &code) != NATS_OK) return {};
  // Those without a leader are left out. Without the archive, somebody has removed it.
  const bool all = places->Count == count;
  bool archive = false;
  for (int i = 0; i < places->Count; ++i) {
    const jsConsumerInfo& place = *places->List[i];
    archive |= place.Name == std::string(kArchive);
    const std::uint64_t stored = place.AckFloor.Stream;
    kept.ahead |= stored > kept.last;
    kept.unstored =
        std::max({kept.unstored, place.NumPending,
                  static_cast<std::uint64_t>(std::max<std::int64_t>(place.NumAckPending, 0)),
                  kept.last - std::min(stored, kept.last)});
  }
  jsConsumerInfoList_Destroy(places);
  if (!all || !archive) return {};
  return kept;
}

}  // namespace tool::fleet
