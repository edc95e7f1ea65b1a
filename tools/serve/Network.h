#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <memory>
#include <string>

#include "serve/Api.h"

// What the parts of the network share.
namespace tool::serve {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

// TCP and Unix sockets alike.
using PlainStream = beast::basic_stream<asio::generic::stream_protocol>;
using TlsStream = beast::ssl_stream<PlainStream>;
using HttpRequest = http::request<http::string_body>;

// Who is at the other end.
struct PeerInfo {
  Peer peer = Peer::kLoopback;
  std::string address;
  std::shared_ptr<void> counted{};  // one of the connections that there may be
};

// Everything that connections need.
struct Services {
  asio::io_context& network;
  Api& api;
  StreamHub& hub;
  ServedSensor& sensor;
  CallThread& sensor_calls;
};

// Serves the requests of one connection until it ends; keeps itself alive.
void ServeConnection(PlainStream stream, const PeerInfo& peer, const Services& services);
void ServeConnection(TlsStream stream, const PeerInfo& peer, const Services& services);

// Goes on with a connection as a stream of messages.
struct StreamWish {
  Stream stream = Stream::kProfile;
  double rate = 0;
  PeerInfo peer;
};
void ServeStream(PlainStream stream, HttpRequest request, const StreamWish& wish,
                 const Services& services);
void ServeStream(TlsStream stream, HttpRequest request, const StreamWish& wish,
                 const Services& services);

// Gives the process at the other end of a Unix socket all frames, in a ring of `bytes`, until it
// closes the connection. `what` as RecordTap takes it.
void ServeRing(PlainStream stream, const PeerInfo& peer, std::size_t bytes, const std::string& what,
               const Services& services);

inline constexpr std::size_t kMostRings = 8;
inline constexpr const char* kRingProtocol = "tessaline-ring";

}  // namespace tool::serve
