// Messages from one connection to another through a stream, with the client library alone. The
// stream, the consumer and the messages on their way are as "tessaline publish" and "subscribe"
// have them; nothing is done with a message but to acknowledge it. Prints the seconds from the
// first one sent to the last one that came.
//   bench_nats_plain URL BYTES MESSAGES
#include <nats/nats.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kStream = "plain";
constexpr const char* kSubject = "plain.data";
constexpr const char* kConsumer = "archive";
constexpr const char* kDelivery = "plain.delivery";
constexpr std::uint64_t kMostOnTheWay = 64;
constexpr std::uint64_t kMostBytesOnTheWay = 16 << 20;
constexpr std::int64_t kMostUnacknowledged = 128;
constexpr auto kPatience = std::chrono::minutes(5);

void Check(natsStatus status, const char* what) {
  if (status == NATS_OK) return;
  const char* const last = nats_GetLastError(nullptr);
  std::fprintf(stderr, "%s: %s\n", what, last ? last : natsStatus_GetText(status));
  std::exit(1);
}

// Counts up to a number, from several threads.
class Count {
 public:
  void Add() {
    const std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_one();
  }
  void WaitFor(std::uint64_t count, const char* what) {
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, kPatience, [&] { return count_ >= count; })) return;
    std::fprintf(stderr, "only %llu of %llu were %s\n", static_cast<unsigned long long>(count_),
                 static_cast<unsigned long long>(count), what);
    std::exit(1);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t count_ = 0;
};

void OnAnswer(jsCtx*, natsMsg* message, jsPubAck*, jsPubAckErr* bad, void* acknowledged) {
  if (bad != nullptr) Check(bad->Err, bad->ErrText);
  natsMsg_Destroy(message);
  static_cast<Count*>(acknowledged)->Add();
}

void OnMessage(natsConnection*, natsSubscription*, natsMsg* message, void* came) {
  natsMsg_Ack(message, nullptr);
  natsMsg_Destroy(message);
  static_cast<Count*>(came)->Add();
}

natsConnection* Connect(const char* url) {
  natsConnection* connection = nullptr;
  Check(natsConnection_ConnectTo(&connection, url), url);
  return connection;
}

jsCtx* Context(natsConnection* connection, jsOptions* options) {
  jsCtx* context = nullptr;
  Check(natsConnection_JetStream(&context, connection, options), "streams");
  return context;
}

void MakeStream(jsCtx* context) {
  const char* subjects[] = {kSubject};
  jsStreamConfig stream;
  jsStreamConfig_Init(&stream);
  stream.Name = kStream;
  stream.Subjects = subjects;
  stream.SubjectsLen = 1;
  stream.Retention = js_LimitsPolicy;
  stream.Discard = js_DiscardNew;
  Check(js_AddStream(nullptr, context, &stream, nullptr, nullptr), kStream);
  jsConsumerConfig consumer;
  jsConsumerConfig_Init(&consumer);
  consumer.Durable = kConsumer;
  consumer.DeliverSubject = kDelivery;
  consumer.DeliverPolicy = js_DeliverAll;
  consumer.AckPolicy = js_AckExplicit;
  consumer.MaxAckPending = kMostUnacknowledged;
  Check(js_AddConsumer(nullptr, context, kStream, &consumer, nullptr, nullptr), kConsumer);
}

void Send(jsCtx* context, const std::vector<char>& payload, std::uint64_t number) {
  natsMsg* message = nullptr;
  Check(
      natsMsg_Create(&message, kSubject, nullptr, payload.data(), static_cast<int>(payload.size())),
      "message");
  jsPubOptions options;
  jsPubOptions_Init(&options);
  const std::string name = std::to_string(number);
  options.MsgId = name.c_str();
  Check(js_PublishMsgAsync(context, &message, &options), "send");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s URL BYTES MESSAGES\n", argv[0]);
    return 2;
  }
  const std::vector<char> payload(std::strtoull(argv[2], nullptr, 10));
  const std::uint64_t messages = std::strtoull(argv[3], nullptr, 10);
  const std::uint64_t most =
      std::min(kMostOnTheWay, kMostBytesOnTheWay / std::max<std::uint64_t>(payload.size(), 1));

  static Count acknowledged, came;
  jsOptions options;
  jsOptions_Init(&options);
  options.PublishAsync.AckHandler = OnAnswer;
  options.PublishAsync.AckHandlerClosure = &acknowledged;
  jsCtx* const from = Context(Connect(argv[1]), &options);
  jsCtx* const to = Context(Connect(argv[1]), nullptr);
  js_DeleteStream(from, kStream, nullptr, nullptr);
  MakeStream(from);
  jsSubOptions subscribe;
  jsSubOptions_Init(&subscribe);
  subscribe.Stream = kStream;
  subscribe.Consumer = kConsumer;
  subscribe.ManualAck = true;
  natsSubscription* subscription = nullptr;
  Check(js_Subscribe(&subscription, to, kSubject, OnMessage, &came, nullptr, &subscribe, nullptr),
        kConsumer);
  natsSubscription_SetPendingLimits(subscription, -1, -1);

  const auto start = Clock::now();
  for (std::uint64_t i = 0; i < messages; ++i) {
    if (i >= most) acknowledged.WaitFor(i - most + 1, "stored by the server");
    Send(from, payload, i);
  }
  came.WaitFor(messages, "delivered");
  std::printf("%.6f\n", std::chrono::duration<double>(Clock::now() - start).count());
  Check(js_DeleteStream(from, kStream, nullptr, nullptr), kStream);
}
