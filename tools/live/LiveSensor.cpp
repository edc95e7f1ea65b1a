#include "live/LiveSensor.h"

#include <errno.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

#include "RecipeText.h"
#include "Session.h"
#include "live/LiveSocket.h"

namespace tool::live {
namespace {

constexpr timeval kPatience{20, 0};
constexpr std::string_view kEndOfHeader = "\r\n\r\n";
constexpr int kGood = 200;
constexpr int kUpgraded = 101;

// The daemon said nothing, or no HTTP.
struct NoAnswer {};

Failure OtherVersion(const std::string& name) {
  return {ExitCode::kUnreachable, fmt::format("the answer of {} cannot be understood", name),
          "are tessaline and tessaline-serve of the same version?"};
}

// A connection that is closed when nobody uses it any more.
class Connection {
 public:
  explicit Connection(int descriptor) : descriptor_(descriptor) {
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
      setsockopt(descriptor, SOL_SOCKET, option, &kPatience, sizeof kPatience);
    }
  }
  ~Connection() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int Release() { return std::exchange(descriptor_, -1); }

  void Write(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t sent = send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL);
      if (sent < 0 && errno == EINTR) continue;
      if (sent <= 0) throw NoAnswer{};
      text.remove_prefix(static_cast<std::size_t>(sent));
    }
  }

  // Appends what comes next, and keeps a descriptor that comes with it. False: it has ended.
  bool Read(std::string& text, int* descriptor = nullptr) const {
    std::array<char, 16384> part{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    iovec place{part.data(), part.size()};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t got = -1;
    do {
      got = recvmsg(descriptor_, &message, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    if (got < 0) throw NoAnswer{};
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS && descriptor != nullptr) {
      std::memcpy(descriptor, CMSG_DATA(header), sizeof *descriptor);
    }
    text.append(part.data(), static_cast<std::size_t>(got));
    return got > 0;
  }

 private:
  int descriptor_;
};

std::string RequestText(const std::string& method, const std::string& path, const std::string& more,
                        const std::string& body) {
  return fmt::format("{} {} HTTP/1.1\r\nHost: localhost\r\n{}Content-Length: {}\r\n\r\n{}", method,
                     path, more, body.size(), body);
}

// "HTTP/1.1 200 OK"; 0: this is no HTTP.
int StatusOf(std::string_view answer) {
  constexpr std::string_view kStart = "HTTP/1.1 ";
  int status = 0;
  if (!answer.starts_with(kStart)) return 0;
  answer.remove_prefix(kStart.size());
  std::from_chars(answer.data(), answer.data() + answer.size(), status);
  return status;
}

Json BodyOf(const std::string& answer) {
  const std::size_t end = answer.find(kEndOfHeader);
  if (end == std::string::npos) throw NoAnswer{};
  Json json = Json::parse(answer.substr(end + kEndOfHeader.size()), nullptr, false);
  if (json.is_discarded()) throw NoAnswer{};
  return json;
}

}  // namespace

bool HasEnded(int connection) {
  pollfd poll{connection, POLLIN | POLLRDHUP, 0};
  return ::poll(&poll, 1, 0) > 0;
}

LiveSensor::LiveSensor(std::string path, pid_t process)
    : path_(std::move(path)), process_(process) {
  const Json state = Get("/api/v1/state");
  if (!state.contains("model") || !state["model"].is_string()) {
    throw OtherVersion(Name());
  }
  model_ = state["model"];
  virtual_ = state.value("virtual", false);
}

std::unique_ptr<LiveSensor> LiveSensor::Find() {
  for (const std::string& path : SocketPaths()) {
    if (const auto process = ProcessBehind(path)) {
      return std::unique_ptr<LiveSensor>(new LiveSensor(path, *process));
    }
    if (errno == EACCES) {
      throw Failure(ExitCode::kNoPermission,
                    fmt::format("tessaline serve has the sensor, and {} is not for you", path),
                    "join the group tessaline, or use sudo");
    }
  }
  return nullptr;
}

std::string LiveSensor::Name() const {
  return fmt::format("tessaline serve (process {})", process_);
}

Failure LiveSensor::Gone() const {
  return {ExitCode::kUnreachable, fmt::format("{} has ended", Name()),
          "start it again; its log says why it has ended"};
}

int LiveSensor::Open() const {
  const int connection = Connect(path_);
  if (connection < 0) throw Gone();
  return connection;
}

template <typename Exchange>
auto LiveSensor::Answer(const Exchange& exchange) const {
  try {
    return exchange();
  } catch (const NoAnswer&) {
    if (!ProcessBehind(path_)) throw Gone();
    throw Failure(ExitCode::kUnreachable, fmt::format("{} does not answer", Name()),
                  "look at its log, or use --direct once it has ended");
  } catch (const Json::exception&) {
    throw OtherVersion(Name());
  }
}

Json LiveSensor::Get(const std::string& path) const { return Send("GET", path, {}); }

Json LiveSensor::Send(const std::string& method, const std::string& path, const Json& body) const {
  return Answer([&] {
    const Connection connection(Open());
    connection.Write(RequestText(method, path, "Connection: close\r\n",
                                 body.is_null() ? std::string() : body.dump()));
    std::string answer;
    while (connection.Read(answer)) {
    }
    Json json = BodyOf(answer);
    if (StatusOf(answer) / 100 != kGood / 100) throw FailureIn(json);
    return json;
  });
}

void LiveSensor::Change(const Recipe& recipe) const {
  Json body = Json::parse(AsText(recipe));
  Send("PATCH", "/api/v1/settings", body);
}

Region LiveSensor::CurrentRegion() const {
  return Answer([&]() -> Region {
    const Json region = Get("/api/v1/state").at("region");
    return {region.at("x"), region.at("y"), region.at("width"), region.at("height")};
  });
}

void LiveSensor::RequireFrames(bool images) const {
  const Json state = Get("/api/v1/state");
  const std::string wanted = images ? "images" : "strips";
  if (state["mode"] != wanted) {
    throw Failure(
        ExitCode::kNegative,
        fmt::format("{} takes {} now, not {}", Name(), state["mode"].get<std::string>(), wanted),
        "switch its mode in the page");
  }
  if (!state["acquisition"]) {
    throw Failure(ExitCode::kNegative, fmt::format("{} takes no frames now", Name()),
                  "start the acquisition in the page");
  }
}

LiveSensor::Frames LiveSensor::TakeFrames(const std::string& what, unsigned megabytes) const {
  return Answer([&]() -> Frames {
    Connection connection(Open());
    std::string encoded = what;
    std::replace(encoded.begin(), encoded.end(), ' ', '+');
    connection.Write(
        RequestText("GET", fmt::format("/api/v1/frames?memory={}&what={}", megabytes, encoded),
                    "Connection: Upgrade\r\nUpgrade: tessaline-ring\r\n", {}));
    std::string answer;
    int descriptor = -1;
    while (answer.find(kEndOfHeader) == std::string::npos && connection.Read(answer, &descriptor)) {
    }
    if (StatusOf(answer) != kUpgraded && StatusOf(answer) != 0) {
      while (connection.Read(answer)) {
      }
      throw FailureIn(BodyOf(answer));
    }
    if (descriptor < 0) {
      throw Failure(ExitCode::kFile, fmt::format("{} gives no frames", Name()),
                    "ask for less memory, or look at its log");
    }
    auto ring = ring::RecordRing::Open(descriptor);
    close(descriptor);
    if (!ring) throw NoAnswer{};
    return {std::move(*ring), connection.Release()};
  });
}

}  // namespace tool::live
