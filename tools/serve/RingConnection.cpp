#include <sys/socket.h>

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <cstring>
#include <memory>

#include "serve/Network.h"

namespace tool::serve {
namespace {

constexpr std::string_view kAccepted =
    "HTTP/1.1 101 Switching Protocols\r\nConnection: Upgrade\r\nUpgrade: tessaline-ring\r\n\r\n";

// Hands over a descriptor, with the last byte of the answer's header.
bool SendDescriptor(int socket, int descriptor) {
  std::string text(kAccepted);
  iovec part{text.data(), text.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptor)> control{};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof descriptor);
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  return sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

// Keeps the tap until the other end closes the connection.
class RingConnection : public std::enable_shared_from_this<RingConnection> {
 public:
  RingConnection(PlainStream stream, const Services& services)
      : stream_(std::move(stream)), services_(services) {}
  ~RingConnection() { Feed::Instance().RemoveTap(tap_); }

  void Run(ring::RecordRing ring, const std::string& what) {
    ring.Claim();
    const int descriptor = ring.Descriptor();
    auto tap = std::make_shared<std::unique_ptr<RecordTap>>(
        std::make_unique<RecordTap>(std::move(ring), what));
    // What the registers hold is asked on the sensor's thread.
    const bool posted = services_.sensor_calls.Post(
        [self = shared_from_this(), tap]() -> Json {
          return Feed::Instance().AddTap(
              std::move(*tap), [&](RecordTap& t) { self->services_.sensor.Introduce(t); });
        },
        [self = shared_from_this(), descriptor](const Json& number, std::exception_ptr failure) {
          if (failure) return;
          const unsigned added = number;
          asio::post(self->services_.network,
                     [self, added, descriptor] { self->OnAdded(added, descriptor); });
        });
    if (!posted) return;
  }

 private:
  void OnAdded(unsigned tap, int descriptor) {
    tap_ = tap;
    const int socket = static_cast<int>(stream_.socket().native_handle());
    if (SendDescriptor(socket, descriptor)) Read();
  }

  void Read() {
    stream_.async_read_some(asio::buffer(byte_),
                            [self = shared_from_this()](beast::error_code error, std::size_t) {
                              if (!error) self->Read();
                            });
  }

  PlainStream stream_;
  const Services services_;
  unsigned tap_ = 0;
  std::array<char, 1> byte_{};
};

}  // namespace

void ServeRing(PlainStream stream, std::size_t bytes, const std::string& what,
               const Services& services) {
  auto ring = ring::RecordRing::Create(bytes);
  if (!ring) return;  // no memory: the other end sees the connection end
  std::make_shared<RingConnection>(std::move(stream), services)->Run(std::move(*ring), what);
}

}  // namespace tool::serve
