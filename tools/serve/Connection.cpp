#include <array>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <charconv>
#include <optional>

#include "serve/Network.h"

namespace tool::serve {
namespace {

constexpr std::uint32_t kMostHeader = 8 << 10;
constexpr std::size_t kMostBody = 64 << 10;
constexpr std::size_t kMostDrained = 16 << 20;
constexpr std::chrono::seconds kPatience{10};        // with a client
constexpr std::chrono::seconds kSensorPatience{15};  // with the sensor
constexpr double kUsualRate = 30;
constexpr double kUsualStateRate = 2;
constexpr double kLeastRate = 0.1;
constexpr double kMostRate = 120;
constexpr double kMostStateRate = 20;
constexpr unsigned kUsualRingMegabytes = 64;
constexpr unsigned kMostRingMegabytes = 1024;
constexpr std::string_view kStreams = "/api/v1/stream/";
constexpr std::string_view kFrames = "/api/v1/frames";
constexpr std::string_view kBearer = "Bearer ";
constexpr std::string_view kTokenProtocol = "token.";

std::string Text(beast::string_view view) { return {view.data(), view.size()}; }

// A number in a query; `usual` if it is absent, nothing if it is wrong.
template <typename Number>
std::optional<Number> NumberIn(const Request& request, const char* name, Number usual, Number least,
                               Number most) {
  const auto found = request.query.find(name);
  if (found == request.query.end()) return usual;
  Number number{};
  const char* const end = found->second.data() + found->second.size();
  const auto [last, error] = std::from_chars(found->second.data(), end, number);
  if (error != std::errc() || last != end || !(number >= least && number <= most)) {
    return std::nullopt;
  }
  return number;
}

// Browsers cannot send a header with a WebSocket, but subprotocols: "tessaline.v1, token.1234".
std::string TokenOf(const HttpRequest& message) {
  const std::string header = Text(message[http::field::authorization]);
  if (beast::iequals(header.substr(0, kBearer.size()), kBearer.data())) {
    return header.substr(kBearer.size());
  }
  const std::string protocols = Text(message[http::field::sec_websocket_protocol]);
  const std::size_t at = protocols.find(kTokenProtocol);
  if (at == std::string::npos) return {};
  const std::size_t begin = at + kTokenProtocol.size();
  return protocols.substr(begin, protocols.find_first_of(", ", begin) - begin);
}

template <typename Transport>
class Connection : public std::enable_shared_from_this<Connection<Transport>> {
 public:
  Connection(Transport stream, PeerInfo peer, const Services& services)
      : stream_(std::move(stream)),
        peer_(std::move(peer)),
        services_(services),
        patience_(services.network) {}

  void Run() {
    if constexpr (std::is_same_v<Transport, TlsStream>) {
      beast::get_lowest_layer(stream_).expires_after(kPatience);
      stream_.async_handshake(asio::ssl::stream_base::server,
                              [self = this->shared_from_this()](beast::error_code error) {
                                if (!error) self->Read();
                              });
    } else {
      Read();
    }
  }

 private:
  void Read() {
    parser_.emplace();
    parser_->header_limit(kMostHeader);
    parser_->body_limit(kMostBody);
    beast::get_lowest_layer(stream_).expires_after(kPatience);
    http::async_read(stream_, buffer_, *parser_,
                     [self = this->shared_from_this()](beast::error_code error, std::size_t) {
                       self->OnRead(error);
                     });
  }

  void OnRead(beast::error_code error) {
    if (error == http::error::body_limit) {
      return Write(ErrorResponse(413, "the body is too large", "at most 64 kB"), false, 11);
    }
    if (error == http::error::header_limit || error == http::error::buffer_overflow) {
      return Write(ErrorResponse(431, "the header is too large", "at most 8 kB"), false, 11);
    }
    if (error == http::error::end_of_stream || error == beast::error::timeout) return Close();
    if (error && error.category() == http::make_error_code(http::error::bad_method).category()) {
      return Write(ErrorResponse(400, "this is no HTTP request"), false, 11);
    }
    if (error) return;
    Answer(parser_->release());
  }

  void Answer(HttpRequest message) {
    Request request;
    request.method = Text(message.method_string());
    request.token = TokenOf(message);
    request.origin = Text(message[http::field::origin]);
    request.host = Text(message[http::field::host]);
    request.peer = PeerOf(message);
    request.address = peer_.address;
    const bool keep = message.keep_alive();
    const unsigned version = message.version();
    is_head_ = message.method() == http::verb::head;
    if (!ParseTarget(Text(message.target()), request)) {
      return Write(ErrorResponse(400, "the address is malformed"), false, version);
    }
    if (request.path.starts_with(kStreams)) return OpenStream(request, std::move(message));
    if (request.path == kFrames) return OpenRing(request, message);
    request.body = std::move(message.body());
    beast::get_lowest_layer(stream_).expires_never();
    Wait(keep, version);
    // The answer may come from another thread, and after we have lost patience.
    services_.api.Handle(request, [self = this->shared_from_this(), keep, version,
                                   number = number_](Response response) {
      asio::post(self->services_.network,
                 [self, keep, version, number, response = std::move(response)]() mutable {
                   if (number != self->number_) return;
                   self->patience_.cancel();
                   self->Write(std::move(response), keep, version);
                 });
    });
  }

  // Behind a proxy everybody looks like this machine.
  Peer PeerOf(const HttpRequest& message) const {
    const bool forwarded =
        message.count(http::field::forwarded) > 0 || message.count("X-Forwarded-For") > 0;
    return forwarded && peer_.peer == Peer::kLoopback ? Peer::kRemote : peer_.peer;
  }

  // Answers itself if the sensor does not.
  void Wait(bool keep, unsigned version) {
    patience_.expires_after(kSensorPatience);
    patience_.async_wait([self = this->shared_from_this(), keep, version,
                          number = number_](beast::error_code error) {
      if (error || number != self->number_) return;
      // What was given up is not to happen later, when the sensor wakes.
      self->services_.sensor_calls.Clear();
      self->Write(ErrorResponse(503, "the sensor does not answer", "see the log"), keep, version);
    });
  }

  void OpenStream(const Request& request, HttpRequest message) {
    const unsigned version = message.version();
    const auto refuse = [&](const Response& response) { Write(response, false, version); };
    if (auto refused = services_.api.RefuseStream(request)) return refuse(*refused);
    StreamWish wish;
    wish.peer = peer_;
    const std::string name = request.path.substr(kStreams.size());
    if (name == "profile") {
      wish.stream = Stream::kProfile;
    } else if (name == "image") {
      wish.stream = Stream::kImage;
    } else if (name == "state") {
      wish.stream = Stream::kState;
    } else {
      return refuse(ErrorResponse(404, "there is no such stream", "profile, image and state"));
    }
    const double usual = wish.stream == Stream::kState ? kUsualStateRate : kUsualRate;
    const double most = wish.stream == Stream::kState ? kMostStateRate : kMostRate;
    const auto rate = NumberIn(request, "rate", usual, kLeastRate, most);
    if (!rate) {
      return refuse(ErrorResponse(422, "rate is wrong", fmt::format("0.1 to {} a second", most)));
    }
    wish.rate = *rate;
    if (!beast::websocket::is_upgrade(message)) {
      Response response = ErrorResponse(426, "this is a WebSocket", "connect with ws://");
      response.headers["Upgrade"] = "websocket";
      return refuse(response);
    }
    beast::get_lowest_layer(stream_).expires_never();
    ServeStream(std::move(stream_), std::move(message), wish, services_);
  }

  void OpenRing(const Request& request, const HttpRequest& message) {
    const unsigned version = message.version();
    const auto refuse = [&](const Response& response) { Write(response, false, version); };
    if constexpr (std::is_same_v<Transport, PlainStream>) {
      const auto megabytes =
          NumberIn(request, "memory", kUsualRingMegabytes, 1U, kMostRingMegabytes);
      const bool asked = Text(message[http::field::upgrade]) == kRingProtocol;
      if (!megabytes || Feed::Instance().TapCount() >= kMostRings) {
        return refuse(ErrorResponse(422, "there is no room for these frames",
                                    "at most 8 programs take all frames, with 1024 MB each"));
      }
      if (request.peer == Peer::kSocket && asked) {
        const auto what = request.query.find("what");
        beast::get_lowest_layer(stream_).expires_never();
        return ServeRing(std::move(stream_), peer_, std::size_t{*megabytes} << 20,
                         what == request.query.end() ? "strips images" : what->second, services_);
      }
    }
    refuse(ErrorResponse(404, "all frames are for programs on this machine",
                         "they ask for them at the Unix socket"));
  }

  void Write(Response answer, bool keep, unsigned version) {
    ++number_;
    response_ = {};
    response_.version(version);
    response_.result(static_cast<unsigned>(answer.status));
    response_.set(http::field::content_type, answer.type);
    response_.set(http::field::cache_control, "no-store");
    response_.set("X-Content-Type-Options", "nosniff");
    response_.set("Referrer-Policy", "no-referrer");
    for (const auto& [name, value] : answer.headers) response_.set(name, value);
    response_.keep_alive(keep);
    response_.content_length(answer.body.size());
    if (!is_head_) response_.body() = std::move(answer.body);
    beast::get_lowest_layer(stream_).expires_after(kPatience);
    http::async_write(
        stream_, response_,
        [self = this->shared_from_this(), keep](beast::error_code error, std::size_t) {
          if (error) return;
          if (keep) {
            self->Read();
          } else {
            self->Close();
          }
        });
  }

  void Close() {
    beast::error_code ignored;
    beast::get_lowest_layer(stream_).socket().shutdown(asio::socket_base::shutdown_send, ignored);
    beast::get_lowest_layer(stream_).expires_after(kPatience);
    Drain();
  }

  // What the client is still sending: closing would throw away an answer that it has not read.
  void Drain() {
    beast::get_lowest_layer(stream_).async_read_some(
        asio::buffer(rest_),
        [self = this->shared_from_this()](beast::error_code error, std::size_t bytes) {
          self->drained_ += bytes;
          if (!error && self->drained_ < kMostDrained) self->Drain();
        });
  }

  Transport stream_;
  const PeerInfo peer_;
  const Services services_;
  beast::flat_buffer buffer_{kMostHeader + kMostBody};
  std::optional<http::request_parser<http::string_body>> parser_;
  http::response<http::string_body> response_;
  asio::steady_timer patience_;
  std::array<char, 16384> rest_{};
  std::size_t drained_ = 0;
  unsigned number_ = 0;  // of the answer
  bool is_head_ = false;
};

template <typename Transport>
void Serve(Transport stream, const PeerInfo& peer, const Services& services) {
  std::make_shared<Connection<Transport>>(std::move(stream), peer, services)->Run();
}

}  // namespace

void ServeConnection(PlainStream stream, const PeerInfo& peer, const Services& services) {
  Serve(std::move(stream), peer, services);
}

void ServeConnection(TlsStream stream, const PeerInfo& peer, const Services& services) {
  Serve(std::move(stream), peer, services);
}

}  // namespace tool::serve
