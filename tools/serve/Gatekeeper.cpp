#include "serve/Gatekeeper.h"

#include <fmt/format.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "Failure.h"

namespace tool::serve {
namespace {

constexpr std::size_t kTokenBytes = 16;
constexpr std::size_t kShortest = 16;  // characters of a token that somebody has chosen
constexpr std::size_t kLongest = 256;
constexpr unsigned kMostWrong = 10;
constexpr std::chrono::seconds kWrongPer{60};
constexpr std::size_t kMostGuessing = 1000;  // addresses

// The token travels as a WebSocket's subprotocol, too, so it is made of these.
bool IsTokenCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' ||
         c == '_' || c == '.';
}

// "name:80" and "[::1]:80" without the port.
std::string_view WithoutPort(std::string_view host) {
  if (host.starts_with('[')) {
    const std::size_t end = host.find(']');
    return end == host.npos ? host : host.substr(1, end - 1);
  }
  return host.substr(0, host.find(':'));
}

// A page elsewhere can point a name of its own to our address, but not an address.
bool IsAddress(std::string_view host) {
  return !host.empty() &&
         (host.find(':') != host.npos || host.find_first_not_of("0123456789.") == host.npos);
}

}  // namespace

std::string NewToken() {
  std::array<unsigned char, kTokenBytes> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw Failure(ExitCode::kFile, fmt::format("no random numbers: {}", strerror(errno)));
  }
  std::string token;
  for (const unsigned char byte : bytes) token += fmt::format("{:02x}", byte);
  return token;
}

std::string ReadToken(const std::string& path) {
  std::ifstream file(path);
  std::string token;
  if (!file || !std::getline(file, token)) {
    throw Failure(ExitCode::kFile, fmt::format("there is no token in {}", path),
                  "make one: (umask 077; head -c 24 /dev/urandom | base64 | tr +/ -_ > FILE)");
  }
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
      (status.st_mode & (S_IRWXO)) != 0) {
    throw Failure(ExitCode::kUsage, fmt::format("everybody may read the token in {}", path),
                  fmt::format("chmod 600 {}", path));
  }
  while (!token.empty() && (token.back() == '\r' || token.back() == ' ')) token.pop_back();
  const bool good = token.size() >= kShortest && token.size() <= kLongest &&
                    std::all_of(token.begin(), token.end(), IsTokenCharacter);
  if (!good) {
    throw Failure(
        ExitCode::kUsage, fmt::format("the token in {} cannot be used", path),
        fmt::format("a token has {} to {} letters, digits, - _ and .", kShortest, kLongest));
  }
  return token;
}

Gatekeeper::Gatekeeper(std::string token, std::set<std::string> hosts)
    : token_(std::move(token)), hosts_(std::move(hosts)) {}

bool Gatekeeper::HostIsOurs(std::string_view host) const {
  std::string name(WithoutPort(host));
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return IsAddress(name) || name == "localhost" || hosts_.contains(name);
}

bool Gatekeeper::OriginIsOurs(const Request& request) const {
  if (request.origin.empty()) return true;
  const std::size_t slashes = request.origin.find("://");
  return slashes != std::string::npos && request.origin.substr(slashes + 3) == request.host;
}

// In the same time for every wrong one.
bool Gatekeeper::TokenIsRight(const std::string& token) const {
  unsigned difference = token.size() == token_.size() ? 0 : 1;
  for (std::size_t i = 0; i < token_.size(); ++i) {
    difference |= static_cast<unsigned>(token_[i] ^ (i < token.size() ? token[i] : 0));
  }
  return difference == 0;
}

std::optional<Response> Gatekeeper::Refuse(const Request& request, bool writes) {
  if (request.peer == Peer::kSocket) return std::nullopt;
  if (!HostIsOurs(request.host)) {
    return ErrorResponse(403, "this is no name of this daemon",
                         "use its address, or start it with --host NAME");
  }
  if (!OriginIsOurs(request)) return ErrorResponse(403, "another page may not use this daemon");
  if (!writes && request.peer == Peer::kLoopback) return std::nullopt;
  if (TokenIsRight(request.token)) return std::nullopt;
  const auto now = Clock::now();
  std::erase_if(guesses_,
                [now](const auto& entry) { return now - entry.second.since > kWrongPer; });
  const auto known = guesses_.find(request.address);
  const bool too_many = known != guesses_.end() && known->second.wrong >= kMostWrong;
  if (too_many || guesses_.size() > kMostGuessing) {
    Response response = ErrorResponse(429, "too many wrong tokens", "wait for a minute");
    response.headers["Retry-After"] = "60";
    return response;
  }
  if (!request.token.empty()) {
    ++guesses_.try_emplace(request.address, Guesses{0, now}).first->second.wrong;
  }
  Response response = ErrorResponse(
      401, request.token.empty() ? "this needs the token" : "the token is wrong",
      "the daemon prints an address with its token when it starts; or send \"Authorization: Bearer "
      "TOKEN\"");
  response.headers["WWW-Authenticate"] = "Bearer";
  return response;
}

}  // namespace tool::serve
