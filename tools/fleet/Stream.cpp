#include "fleet/Stream.h"

#include <fmt/core.h>

#include <algorithm>

#include "fleet/Names.h"

namespace tool::fleet {
namespace {

constexpr unsigned kUsualReplicas = 3;
constexpr std::int64_t kHeartbeatNs = 5'000'000'000;
// For what is on its way.
constexpr std::uint64_t kHeadroom = 16 << 20;

// The server cannot keep that many copies: it stands alone, or the cluster is smaller.
bool WantsFewer(jsErrCode code) {
  return code == JSStreamReplicasNotSupportedErr || code == JSClusterNoPeersErr ||
         code == JSInsufficientResourcesErr;
}

// The server does not answer a request that it forbids; the connection knows more.
void RequireAllowed(const Server& server, const std::string& sensor) {
  if (server.LastError().find("ermissions") == std::string::npos) return;
  throw Failure(ExitCode::kNoPermission,
                fmt::format("{} has no place on the server and may not make one: "
                            "\"tessaline fleet add {}\" does, by an operator",
                            sensor, sensor));
}

[[noreturn]] void Fail(natsStatus status, jsErrCode code, const std::string& what) {
  const std::string text = fmt::format("{}: {}", what, TextOf(status, code));
  if (code == JSNotEnabledErr || code == JSNotEnabledForAccountErr ||
      status == NATS_NO_RESPONDERS) {
    throw Failure(ExitCode::kNegative,
                  fmt::format("{}: the server stores nothing, start it with JetStream "
                              "(nats-server -js)",
                              what));
  }
  throw Failure(ExitCode::kUnreachable, text, "the server's log may say more");
}

}  // namespace

void RequireStream(const Server& server, const StreamSettings& settings) {
  const auto context = server.NewStreamContext();
  const std::string name = StreamName(settings.sensor);
  jsErrCode code{};
  jsStreamInfo* found = nullptr;
  natsStatus status = js_GetStreamInfo(&found, context.get(), name.c_str(), nullptr, &code);
  jsStreamInfo_Destroy(found);
  if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr) {
    const std::string subject = DataSubject("*", settings.sensor);
    const char* subjects[] = {subject.c_str()};
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = name.c_str();
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Retention = js_LimitsPolicy;
    config.Discard = js_DiscardNew;
    if (settings.most_bytes != 0) {
      config.MaxBytes = static_cast<std::int64_t>(2 * settings.most_bytes + kHeadroom);
    }
    config.Replicas = settings.replicas == 0 ? kUsualReplicas : settings.replicas;
    do {
      code = {};
      status = js_AddStream(nullptr, context.get(), &config, nullptr, &code);
    } while (status != NATS_OK && settings.replicas == 0 && WantsFewer(code) &&
             --config.Replicas > 0);
  }
  if (status == NATS_TIMEOUT) RequireAllowed(server, settings.sensor);
  if (status != NATS_OK) Fail(status, code, fmt::format("no place for {}", settings.sensor));
  RequireSubscriber(server, settings.sensor, kArchive);
}

Room RoomOf(const Server& server, const std::string& sensor) {
  const auto context = server.NewStreamContext();
  jsErrCode code{};
  jsStreamInfo* about = nullptr;
  Check(js_GetStreamInfo(&about, context.get(), StreamName(sensor).c_str(), nullptr, &code),
        sensor);
  Room room{.used = about->State.Bytes};
  if (about->Config->MaxBytes > 0) {
    const auto most = static_cast<std::uint64_t>(about->Config->MaxBytes);
    room.limit = most > kHeadroom ? (most - kHeadroom) / 2 : most / 4;
  }
  jsStreamInfo_Destroy(about);
  return room;
}

bool HasStream(const Server& server, const std::string& sensor) {
  const auto context = server.NewStreamContext();
  jsErrCode code{};
  jsConsumerInfo* place = nullptr;
  const natsStatus status = js_GetConsumerInfo(&place, context.get(), StreamName(sensor).c_str(),
                                               kArchive, nullptr, &code);
  jsConsumerInfo_Destroy(place);
  if (status == NATS_NOT_FOUND || code == JSStreamNotFoundErr || code == JSConsumerNotFoundErr) {
    return false;
  }
  if (status != NATS_OK) Fail(status, code, sensor);
  return true;
}

void RequireSubscriber(const Server& server, const std::string& sensor,
                       const std::string& subscriber) {
  const auto context = server.NewStreamContext();
  const std::string stream = StreamName(sensor);
  const std::string deliver = DeliverySubject(subscriber, sensor);
  jsErrCode code{};
  jsConsumerInfo* found = nullptr;
  natsStatus status =
      js_GetConsumerInfo(&found, context.get(), stream.c_str(), subscriber.c_str(), nullptr, &code);
  jsConsumerInfo_Destroy(found);
  if (status == NATS_NOT_FOUND || code == JSConsumerNotFoundErr) {
    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.Durable = subscriber.c_str();
    config.DeliverSubject = deliver.c_str();
    config.DeliverPolicy = js_DeliverAll;
    config.AckPolicy = js_AckExplicit;
    config.AckWait = kAckWaitNs;
    config.MaxAckPending = kMostUnstored;
    config.Heartbeat = kHeartbeatNs;
    code = {};
    status = js_AddConsumer(nullptr, context.get(), stream.c_str(), &config, nullptr, &code);
  }
  if (status != NATS_OK) {
    Fail(status, code, fmt::format("no place for {} at {}", subscriber, sensor));
  }
}

void ForgetStream(const Server& server, const std::string& sensor) {
  jsErrCode code{};
  const auto context = server.NewStreamContext();
  const natsStatus status =
      js_DeleteStream(context.get(), StreamName(sensor).c_str(), nullptr, &code);
  if (status != NATS_OK) Fail(status, code, fmt::format("cannot forget {}", sensor));
}

void ForgetSubscriber(const Server& server, const std::string& sensor,
                      const std::string& subscriber) {
  jsErrCode code{};
  const auto context = server.NewStreamContext();
  const natsStatus status = js_DeleteConsumer(context.get(), StreamName(sensor).c_str(),
                                              subscriber.c_str(), nullptr, &code);
  if (status == NATS_NOT_FOUND || code == JSConsumerNotFoundErr) return;
  if (status != NATS_OK) Fail(status, code, fmt::format("cannot forget {}", subscriber));
}

std::vector<std::string> SensorsWithStreams(const Server& server, const std::string& pattern) {
  const auto context = server.NewStreamContext();
  jsStreamNamesList* list = nullptr;
  jsErrCode code{};
  const natsStatus status = js_StreamNames(&list, context.get(), nullptr, &code);
  std::vector<std::string> sensors;
  if (status == NATS_NOT_FOUND) return sensors;
  if (status != NATS_OK) Fail(status, code, "the server does not tell its streams");
  for (int i = 0; i < list->Count; ++i) {
    const auto sensor = SensorOfStream(list->List[i]);
    if (sensor && Matches(pattern, *sensor)) sensors.push_back(*sensor);
  }
  jsStreamNamesList_Destroy(list);
  std::sort(sensors.begin(), sensors.end());
  return sensors;
}

}  // namespace tool::fleet
