#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "serve/LogLines.h"
#include "serve/Network.h"

namespace tool::serve {
namespace {

namespace websocket = beast::websocket;

constexpr std::chrono::seconds kHandshake{10};
constexpr std::chrono::seconds kIdle{30};
// What the kernel holds for a client, so that a slow one does not see old pictures.
constexpr int kSendBuffer = 128 << 10;
constexpr std::size_t kMostIncoming = 1024;
constexpr std::size_t kFirstLogLines = 100;
constexpr std::string_view kProtocol = "tessaline.v1";

template <typename Transport>
class StreamConnection : public StreamClient,
                         public std::enable_shared_from_this<StreamConnection<Transport>> {
 public:
  StreamConnection(Transport stream, const StreamWish& wish, const Services& services)
      : StreamClient(wish.stream, wish.rate, wish.peer.address),
        counted_(wish.peer.counted),
        socket_(std::move(stream)),
        services_(services) {}

  ~StreamConnection() override { services_.hub.Remove(id_); }

  void Run(HttpRequest request) {
    beast::error_code ignored;
    beast::get_lowest_layer(socket_).socket().set_option(
        asio::socket_base::send_buffer_size(kSendBuffer), ignored);
    socket_.set_option(websocket::stream_base::timeout{kHandshake, kIdle, true});
    socket_.read_message_max(kMostIncoming);
    socket_.auto_fragment(false);
    const auto offered = request[http::field::sec_websocket_protocol];
    const bool wants_protocol = offered.find(kProtocol.data()) != beast::string_view::npos;
    socket_.set_option(
        websocket::stream_base::decorator([wants_protocol](websocket::response_type& response) {
          if (wants_protocol) response.set(http::field::sec_websocket_protocol, kProtocol.data());
        }));
    request_ = std::move(request);
    socket_.async_accept(request_, [self = this->shared_from_this()](beast::error_code error) {
      if (error) return;
      self->id_ = self->services_.hub.Add(self);
      self->Read();
    });
  }

 protected:
  void Send(const Message& message) override {
    const bool state = stream() == Stream::kState;
    socket_.binary(!state);
    sent_ = message;
    Write();
  }

 private:
  void Write() {
    socket_.async_write(asio::buffer(*sent_), [self = this->shared_from_this()](
                                                  beast::error_code error, std::size_t bytes) {
      if (error) return self->End();
      self->OnWritten(bytes);
    });
  }

  // After a state come the lines of the log that are new, none is left out.
  void OnWritten(std::size_t bytes) {
    if (stream() == Stream::kState && log_at_ != LogLines::Instance().End()) {
      const Json lines = LogLines::Instance().Since(
          log_at_, std::exchange(first_log_, false) ? kFirstLogLines : LogLines::kMost);
      const Json json{{"type", "log"}, {"lines", lines}};
      sent_ = std::make_shared<const std::string>(
          json.dump(-1, ' ', false, Json::error_handler_t::replace));
      return Write();
    }
    Sent(bytes);
  }

  // Nothing is expected; reading answers pings and notices the end.
  void Read() {
    socket_.async_read(
        buffer_, [self = this->shared_from_this()](beast::error_code error, std::size_t) {
          if (error) return self->End();
          self->socket_.async_close(websocket::close_reason(websocket::close_code::policy_error,
                                                            "this stream takes no messages"),
                                    [self](beast::error_code) { self->End(); });
        });
  }

  void End() {
    services_.hub.Remove(std::exchange(id_, 0));
    beast::error_code ignored;
    beast::get_lowest_layer(socket_).socket().close(ignored);
  }

  const std::shared_ptr<void> counted_;
  websocket::stream<Transport> socket_;
  const Services services_;
  HttpRequest request_;
  beast::flat_buffer buffer_;
  Message sent_;
  unsigned id_ = 0;  // 0: not subscribed
  std::uint64_t log_at_ = 0;
  bool first_log_ = true;
};

template <typename Transport>
void Serve(Transport stream, HttpRequest request, const StreamWish& wish,
           const Services& services) {
  std::make_shared<StreamConnection<Transport>>(std::move(stream), wish, services)
      ->Run(std::move(request));
}

}  // namespace

void ServeStream(PlainStream stream, HttpRequest request, const StreamWish& wish,
                 const Services& services) {
  Serve(std::move(stream), std::move(request), wish, services);
}

void ServeStream(TlsStream stream, HttpRequest request, const StreamWish& wish,
                 const Services& services) {
  Serve(std::move(stream), std::move(request), wish, services);
}

}  // namespace tool::serve
