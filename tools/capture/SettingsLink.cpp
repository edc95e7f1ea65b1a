#include "capture/SettingsLink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <charconv>

#include "Failure.h"
#include "Session.h"
#include "VirtualBoard.h"

namespace tool {
namespace {

// Settings are small; the longest recipe has some hundred bytes.
constexpr std::size_t kMostBytes = 16 << 10;
// The slowest change, of the region of interest, restarts the sensor.
constexpr int kPatienceMs = 20'000;

bool IsReadable(int descriptor, int milliseconds) {
  pollfd poll{descriptor, POLLIN, 0};
  return ::poll(&poll, 1, milliseconds) > 0;
}

// Null: nothing came, or no JSON.
Json Receive(int descriptor) {
  std::array<char, kMostBytes> bytes{};
  const ssize_t got = recv(descriptor, bytes.data(), bytes.size(), 0);
  if (got <= 0) return nullptr;
  Json json = Json::parse(bytes.data(), bytes.data() + got, nullptr, false);
  return json.is_object() ? json : Json();
}

void Send(int descriptor, const Json& json) {
  const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  send(descriptor, text.data(), text.size(), MSG_NOSIGNAL);
}

}  // namespace

SettingsLink::SettingsLink() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    throw Failure(ExitCode::kFile, "there is no descriptor left", "close other programs");
  }
  ours_ = ends[0];
  theirs_ = ends[1];
  fcntl(theirs_, F_SETFD, 0);
}

SettingsLink::~SettingsLink() {
  Started();
  close(ours_);
}

void SettingsLink::Started() {
  if (theirs_ >= 0) close(theirs_);
  theirs_ = -1;
}

Json SettingsLink::Ask(const Json& request) const {
  while (IsReadable(ours_, 0) && !Receive(ours_).is_null()) {  // answers that came too late
  }
  Send(ours_, request);
  const Json answer = IsReadable(ours_, kPatienceMs) ? Receive(ours_) : Json();
  if (answer.is_null()) {
    throw Failure(ExitCode::kUnreachable, "the process that takes the frames does not answer",
                  "look at its log");
  }
  if (answer.contains("error")) throw FailureIn(answer);
  return answer;
}

int SettingsLink::Inherited() {
  static const int descriptor = [] {
    const std::string text = Environment(kVariable);
    unsetenv(kVariable);
    int number = -1;
    std::from_chars(text.data(), text.data() + text.size(), number);
    if (number >= 0) fcntl(number, F_SETFD, FD_CLOEXEC);
    return number;
  }();
  return descriptor;
}

void SettingsLink::Serve(int descriptor, int milliseconds,
                         const std::function<Json(const Json&)>& answer) {
  if (!IsReadable(descriptor, milliseconds)) return;
  const Json request = Receive(descriptor);
  if (request.is_null()) {
    ::poll(nullptr, 0, milliseconds);  // the other end has been closed
    return;
  }
  try {
    Send(descriptor, answer(request));
  } catch (const Failure& failure) {
    Json json;
    AddTo(json, failure);
    Send(descriptor, json);
  } catch (const Json::exception&) {
    Send(descriptor, {{"error", "this is no request for settings"}});
  }
}

}  // namespace tool
