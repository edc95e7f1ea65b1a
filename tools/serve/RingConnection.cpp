#include <sys/socket.h>

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <cstring>
#include <fstream>
#include <memory>

#include "serve/LogLines.h"
#include "serve/Network.h"

namespace tool::serve {
namespace {

constexpr std::string_view kAccepted =
    "HTTP/1.1 101 Switching Protocols\r\nConnection: Upgrade\r\nUpgrade: tessaline-ring\r\n\r\n";

// A ring takes all of its memory at once. It may take half of what is free.
bool HasRoomFor(std::size_t bytes) {
  std::ifstream file("/proc/meminfo");
  const std::string wanted = "MemAvailable:";
  std::string name;
  std::size_t kilobytes = 0;
  std::string unit;
  while (file >> name >> kilobytes) {
    if (name == wanted) return bytes / 1024 <= kilobytes / 2;
    std::getline(file, unit);
  }
  return true;
}

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
  RingConnection(PlainStream stream, const PeerInfo& peer, const Services& services)
      : stream_(std::move(stream)), peer_(peer), services_(services) {}
  ~RingConnection() { Feed::Instance().RemoveTap(tap_); }

  // Making the ring takes time, and so does asking what the registers hold: a job for the sensor's
  // thread. If it fails, the other end sees the connection end.
  void Run(std::size_t bytes, const std::string& what) {
    services_.sensor_calls.Post(
        [self = shared_from_this(), bytes, what]() -> Json { return self->Add(bytes, what); },
        [self = shared_from_this()](const Json& number, const std::exception_ptr& failure) {
          if (failure || number.is_null()) return;
          const unsigned added = number;
          asio::post(self->services_.network, [self, added] { self->OnAdded(added); });
        });
  }

 private:
  Json Add(std::size_t bytes, const std::string& what) {
    if (!HasRoomFor(bytes)) {
      LogLines::Instance().Note("a program asked for frames, and its memory is more than is free");
      return nullptr;
    }
    auto ring = ring::RecordRing::Create(bytes);
    if (!ring || Feed::Instance().TapCount() >= kMostRings) return nullptr;
    ring->Claim();
    ring->DistrustReader();
    descriptor_ = ring->Descriptor();
    return Feed::Instance().AddTap(std::make_unique<RecordTap>(std::move(*ring), what),
                                   [this](RecordTap& tap) { services_.sensor.Introduce(tap); });
  }

  void OnAdded(unsigned tap) {
    tap_ = tap;
    const int socket = static_cast<int>(stream_.socket().native_handle());
    if (SendDescriptor(socket, descriptor_)) Wait();
  }

  // Nothing more is expected. The tap goes when the other end does, or says anything.
  void Wait() {
    stream_.async_read_some(asio::buffer(byte_),
                            [self = shared_from_this()](beast::error_code, std::size_t) {});
  }

  PlainStream stream_;
  const PeerInfo peer_;
  const Services services_;
  unsigned tap_ = 0;
  int descriptor_ = -1;  // of the ring, which the tap owns
  std::array<char, 1> byte_{};
};

}  // namespace

void ServeRing(PlainStream stream, const PeerInfo& peer, std::size_t bytes, const std::string& what,
               const Services& services) {
  std::make_shared<RingConnection>(std::move(stream), peer, services)->Run(bytes, what);
}

}  // namespace tool::serve
