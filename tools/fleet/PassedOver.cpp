#include "fleet/PassedOver.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "fleet/Names.h"
#include "fleet/Stream.h"

namespace tool::fleet {

PassedOver::PassedOver(const Server& server, const std::string& sensor, std::string subscriber)
    : server_(server),
      sensor_(sensor),
      stream_(StreamName(sensor)),
      subscriber_(std::move(subscriber)) {}

void PassedOver::Begin(std::optional<std::uint64_t> before) {
  RequireSubscriber(server_, sensor_, subscriber_);
  const auto context = server_.NewStreamContext();
  jsErrCode code{};
  // In this order: what comes in between is not past the place.
  jsConsumerInfo* place = nullptr;
  Check(js_GetConsumerInfo(&place, context.get(), stream_.c_str(), subscriber_.c_str(), nullptr,
                           &code),
        stream_);
  const std::uint64_t delivered = place->Delivered.Stream;
  const std::uint64_t to = before                     ? std::min(delivered, *before - 1)
                           : place->NumAckPending > 0 ? place->AckFloor.Stream
                                                      : delivered;
  jsConsumerInfo_Destroy(place);
  jsStreamInfo* kept = nullptr;
  Check(js_GetStreamInfo(&kept, context.get(), stream_.c_str(), nullptr, &code), stream_);
  const jsStreamState& state = kept->State;
  state_ = {state.FirstSeq, state.LastSeq, state.Msgs, std::min(to, state.LastSeq)};
  jsStreamInfo_Destroy(kept);
  went_back_ |= delivered > state_.last;
  next_ = std::max(state_.first, state_.to < kMost ? 1 : state_.to - kMost + 1);
  if (state_.messages == 0) next_ = state_.to + 1;
}

std::optional<PassedOver::Kept> PassedOver::Next() {
  const auto context = server_.NewStreamContext();
  for (; next_ <= state_.to; ++next_) {
    jsErrCode code{};
    natsMsg* message = nullptr;
    const natsStatus status =
        js_GetMsg(&message, context.get(), stream_.c_str(), next_, nullptr, &code);
    if (status == NATS_OK) return Kept{Message(message), next_++};
    if (status == NATS_NOT_FOUND) continue;
    throw Failure(ExitCode::kUnreachable, fmt::format("cannot read message {} of {}: {}", next_,
                                                      stream_, TextOf(status, code)));
  }
  ended_ = state_;
  return std::nullopt;
}

}  // namespace tool::fleet
