#include "serve/Listener.h"

#include <fmt/format.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <filesystem>
#include <optional>

#include "Failure.h"
#include "VirtualBoard.h"
#include "live/LiveSocket.h"

namespace tool::serve {
namespace {

using asio::ip::tcp;
using Local = asio::local::stream_protocol;

constexpr long kMostConnections = 256;
constexpr std::chrono::milliseconds kPauseAfterError{100};
constexpr const char* kGroup = "tessaline";
constexpr mode_t kGroupMayUse = 0660;

Failure CannotListen(const std::string& where, const boost::system::error_code& error) {
  return {ExitCode::kFile, fmt::format("cannot listen on {}: {}", where, error.message()),
          "choose another one with --listen, --port or TESSALINE_SOCKET"};
}

// An IPv4 address may come mapped into an IPv6 one.
bool IsThisMachine(const asio::ip::address& address) {
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).is_loopback();
  }
  return address.is_loopback();
}

}  // namespace

bool Place::IsLoopback() const {
  boost::system::error_code error;
  const auto parsed = asio::ip::make_address(address, error);
  return !error && IsThisMachine(parsed);
}

struct Listener::Doors {
  explicit Doors(asio::io_context& network) : port(network), local(network) {}
  tcp::acceptor port;
  Local::acceptor local;
  std::optional<asio::ssl::context> tls;
};

Listener::Listener(const Place& place, const std::string& socket, const Services& services)
    : place_(place),
      path_(socket),
      services_(services),
      doors_(std::make_unique<Doors>(services.network)) {
  if (const auto other = live::ProcessBehind(path_)) {
    throw Failure(ExitCode::kExists,
                  fmt::format("process {} already serves a sensor at {}", *other, path_),
                  "stop it first, or give this one another place with TESSALINE_SOCKET");
  }
  boost::system::error_code error;
  const auto address = asio::ip::make_address(place.address, error);
  if (error) {
    throw Failure(ExitCode::kUsage, fmt::format("{} is no address", place.address),
                  "for example 127.0.0.1, 0.0.0.0 or ::");
  }
  const tcp::endpoint endpoint(address, place.port);
  const std::string where = fmt::format("{} port {}", place.address, place.port);
  doors_->port.open(endpoint.protocol(), error);
  if (!error) doors_->port.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) doors_->port.bind(endpoint, error);
  if (!error) doors_->port.listen(asio::socket_base::max_listen_connections, error);
  if (error) throw CannotListen(where, error);
  if (!place.certificate.empty()) {
    doors_->tls.emplace(asio::ssl::context::tls_server);
    doors_->tls->set_options(asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1, error);
    doors_->tls->use_certificate_chain_file(place.certificate, error);
    if (!error) doors_->tls->use_private_key_file(place.key, asio::ssl::context::pem, error);
    if (error) {
      throw Failure(ExitCode::kFile,
                    fmt::format("the certificate cannot be used: {}", error.message()),
                    "--certificate and --key are PEM files that belong together");
    }
  }
  OpenSocket();
}

Listener::~Listener() { Stop(); }

void Listener::OpenSocket() {
  const std::filesystem::path path(path_);
  boost::system::error_code error;
  std::error_code ignored;
  const auto there = std::filesystem::symlink_status(path, ignored);
  if (std::filesystem::exists(there) && !std::filesystem::is_socket(there)) {
    throw Failure(ExitCode::kExists, fmt::format("{} is there, and is no socket", path_),
                  "give another place with TESSALINE_SOCKET");
  }
  if (std::filesystem::create_directories(path.parent_path(), ignored)) {
    std::filesystem::permissions(
        path.parent_path(),
        std::filesystem::perms::owner_all |
            (geteuid() == 0 ? std::filesystem::perms(055) : std::filesystem::perms::none),
        ignored);
  }
  const bool chosen = !Environment("TESSALINE_SOCKET").empty();
  if (!chosen && geteuid() != 0 && !live::IsOurs(path.parent_path())) {
    throw Failure(ExitCode::kNoPermission,
                  fmt::format("others may write to {}", path.parent_path().string()),
                  "choose another place with TESSALINE_SOCKET");
  }
  std::filesystem::remove(path, ignored);  // of a daemon that was killed
  doors_->local.open(Local(), error);
  const mode_t mask = umask(0177);
  try {
    if (!error) doors_->local.bind(Local::endpoint(path_), error);
  } catch (const boost::system::system_error& too_long) {
    error = too_long.code();
  }
  umask(mask);
  if (!error) doors_->local.listen(asio::socket_base::max_listen_connections, error);
  if (error) throw CannotListen(path_, error);
  const group* const members = getgrnam(kGroup);
  if (members != nullptr && chown(path_.c_str(), static_cast<uid_t>(-1), members->gr_gid) == 0) {
    chmod(path_.c_str(), kGroupMayUse);
  }
}

void Listener::Start() {
  AcceptTcp();
  AcceptSocket();
}

void Listener::Stop() {
  boost::system::error_code ignored;
  if (doors_->local.is_open()) unlink(path_.c_str());
  doors_->port.close(ignored);
  doors_->local.close(ignored);
}

bool Listener::HasRoom() const { return connections_.use_count() <= kMostConnections; }

// When no descriptors are left, for example.
void Listener::Pause(std::function<void()> then) {
  const auto timer = std::make_shared<asio::steady_timer>(services_.network, kPauseAfterError);
  timer->async_wait([this, timer, then = std::move(then)](boost::system::error_code) {
    if (doors_->local.is_open()) then();
  });
}

void Listener::AcceptTcp() {
  doors_->port.async_accept([this](boost::system::error_code error, tcp::socket socket) {
    if (error == asio::error::operation_aborted) return;
    if (error) return Pause([this] { AcceptTcp(); });
    const auto remote = socket.remote_endpoint(error);
    if (!error && HasRoom()) {
      PeerInfo peer{IsThisMachine(remote.address()) ? Peer::kLoopback : Peer::kRemote,
                    remote.address().to_string(), connections_};
      socket.set_option(tcp::no_delay(true), error);
      PlainStream stream{asio::generic::stream_protocol::socket(std::move(socket))};
      if (doors_->tls) {
        ServeConnection(TlsStream(std::move(stream), *doors_->tls), peer, services_);
      } else {
        ServeConnection(std::move(stream), peer, services_);
      }
    }
    AcceptTcp();
  });
}

void Listener::AcceptSocket() {
  doors_->local.async_accept([this](boost::system::error_code error, Local::socket socket) {
    if (error == asio::error::operation_aborted) return;
    if (error) return Pause([this] { AcceptSocket(); });
    if (local_connections_.use_count() <= kMostConnections) {
      ServeConnection(PlainStream{asio::generic::stream_protocol::socket(std::move(socket))},
                      {Peer::kSocket, "this machine", local_connections_}, services_);
    }
    AcceptSocket();
  });
}

std::string Listener::Url() const {
  boost::system::error_code ignored;
  const bool v6 = place_.address.find(':') != std::string::npos;
  return fmt::format("http{}://{}{}{}:{}/", doors_->tls ? "s" : "", v6 ? "[" : "", place_.address,
                     v6 ? "]" : "", doors_->port.local_endpoint(ignored).port());
}

}  // namespace tool::serve
