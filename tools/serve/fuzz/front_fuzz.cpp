// What a client may send to the daemon: requests, WebSockets, and what is neither. The sensor is not
// started, so jobs for it wait for ever, as with hardware that hangs.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "serve/Network.h"

namespace {

using namespace tool;
using namespace tool::serve;

constexpr std::string_view kAnswer = "HTTP/1.";
constexpr int kRounds = 50;

// All that a connection needs.
struct World {
  explicit World(Session& session)
      : sensor(session, measuring, [](bool) {}, [](const View&) {}) {}

  asio::io_context network{1};
  MeasuringOptions measuring;
  PictureMaker pictures{[](Stream, const PictureMaker::Message&) {}};
  ServedSensor sensor;
  StreamHub hub{[](double) {}};
  Recordings recordings{"", ""};
  Gatekeeper gatekeeper{"0123456789abcdef", {}};
  CallThread sensor_calls{[] {}, std::chrono::seconds(1)};
  CallThread recording_calls{[] {}, std::chrono::seconds(1)};
  Api api{{sensor, pictures, hub, recordings, gatekeeper, sensor_calls, recording_calls}};
};

Session& TheSession() {
  static Session* const session = [] {
    CommonOptions options;
    options.model = "K3610";
    options.direct = true;
    return new Session(options);
  }();
  return *session;
}

Peer PeerOf(std::uint8_t choice) {
  constexpr std::array kPeers{Peer::kLoopback, Peer::kRemote, Peer::kSocket};
  return kPeers.at(choice % kPeers.size());
}

// Fails unless what came back begins as an answer does.
void Judge(int end) {
  std::array<char, 4096> answer{};
  const ssize_t got = recv(end, answer.data(), answer.size(), MSG_DONTWAIT);
  if (got <= 0) return;
  const std::string_view text(answer.data(), static_cast<std::size_t>(got));
  if (text.size() >= kAnswer.size() && !text.starts_with(kAnswer)) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view sent(reinterpret_cast<const char*>(data) + 1, size - 1);
  // A ring takes as much memory as it is asked for.
  if (sent.find("/api/v1/frames") != sent.npos) return 0;
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0) abort();
  {
    World world(TheSession());
    asio::generic::stream_protocol::socket socket(world.network);
    socket.assign(asio::generic::stream_protocol(AF_UNIX, 0), ends[0]);
    ServeConnection(PlainStream(std::move(socket)), {PeerOf(data[0]), "fuzz"},
                    {world.network, world.api, world.hub, world.sensor, world.sensor_calls});
    send(ends[1], sent.data(), sent.size(), MSG_NOSIGNAL);
    const auto message = std::make_shared<const std::string>(sent);
    for (int round = 0; round < kRounds; ++round) {
      if (world.network.poll() == 0 && round > 2) break;
      for (const Stream stream : {Stream::kProfile, Stream::kImage, Stream::kState}) {
        world.hub.Publish(stream, message);
      }
    }
    Judge(ends[1]);
    close(ends[1]);
    world.network.poll();
  }
  return 0;
}
