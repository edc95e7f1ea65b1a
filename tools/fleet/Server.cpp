#include "fleet/Server.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "fleet/NKey.h"
#include "fleet/Names.h"

namespace tool::fleet {
namespace {

constexpr int kConnectMs = 3000;
// One of some 300 signatures of the client library is refused although the key is right (3.4.1).
constexpr int kAttempts = 3;
constexpr int kReconnectMs = 500;
constexpr int kJitterMs = 200;
// A server that is cut off is noticed after two of these without an answer.
constexpr int kPingMs = 3000;
constexpr int kMostPings = 2;
constexpr int kWriteMs = 5000;
constexpr std::chrono::seconds kRevivalPeriod{1};

void RequireFile(const std::string& path) {
  std::error_code ignored;
  if (path.empty() || std::filesystem::is_regular_file(path, ignored)) return;
  throw Failure(ExitCode::kFile, fmt::format("cannot read {}", path));
}

std::vector<std::string> Split(const std::string& urls) {
  std::vector<std::string> all;
  std::istringstream list(urls);
  for (std::string url; std::getline(list, url, ',');) all.push_back(url);
  return all;
}

// A user and password in a URL are nobody else's business.
std::string WithoutSecret(const std::string& urls) {
  std::string text;
  for (const std::string& url : Split(urls)) {
    const std::size_t scheme = url.find("://");
    const std::size_t from = scheme == url.npos ? 0 : scheme + 3;
    const std::size_t at = url.rfind('@');
    text += text.empty() ? "" : ",";
    text += at == url.npos ? url : url.substr(0, from) + url.substr(at + 1);
  }
  return text;
}

}  // namespace

std::string TextOf(natsStatus status, jsErrCode code) {
  const char* const last = nats_GetLastError(nullptr);
  const std::string text = last != nullptr && *last != '\0' ? last : natsStatus_GetText(status);
  return code == 0 ? text : fmt::format("{} ({})", text, static_cast<int>(code));
}

void Check(natsStatus status, const std::string& what) {
  if (status == NATS_OK) return;
  throw Failure(ExitCode::kUnreachable, fmt::format("{}: {}", what, natsStatus_GetText(status)));
}

Server::Server(const ServerOptions& options, Role role, const std::string& name, Absent absent)
    : inbox_(InboxPrefix(role, name)), where_(WithoutSecret(options.Urls())) {
  const std::string urls = options.Urls();
  natsOptions* made = nullptr;
  Check(natsOptions_Create(&made), "the client library does not start");
  options_.reset(made);
  const std::vector<std::string> list = Split(urls);
  std::vector<const char*> servers;
  for (const std::string& url : list) servers.push_back(url.c_str());
  Check(natsOptions_SetServers(made, servers.data(), static_cast<int>(servers.size())), where_);
  natsOptions_SetName(made, ("tessaline " + name).c_str());
  Check(natsOptions_SetCustomInboxPrefix(made, inbox_.c_str()), name);
  natsOptions_SetTimeout(made, kConnectMs);
  natsOptions_SetMaxReconnect(made, -1);
  natsOptions_SetReconnectWait(made, kReconnectMs);
  natsOptions_SetReconnectJitter(made, kJitterMs, kJitterMs);
  natsOptions_SetPingInterval(made, kPingMs);
  natsOptions_SetMaxPingsOut(made, kMostPings);
  natsOptions_SetWriteDeadline(made, kWriteMs);
  for (const std::string* file : {&options.credentials, &options.key, &options.authority,
                                  &options.certificate, &options.certificate_key}) {
    RequireFile(*file);
  }
  if (!options.credentials.empty()) {
    Check(natsOptions_SetUserCredentialsFromFiles(made, options.credentials.c_str(), nullptr),
          options.credentials);
  }
  if (!options.key.empty()) {
    Check(natsOptions_SetNKeyFromSeed(made, PublicKeyOf(options.key).c_str(), options.key.c_str()),
          options.key);
  }
  if (!options.authority.empty()) {
    Check(natsOptions_LoadCATrustedCertificates(made, options.authority.c_str()),
          options.authority);
  }
  if (!options.certificate.empty()) {
    Check(natsOptions_LoadCertificatesChain(made, options.certificate.c_str(),
                                            options.certificate_key.c_str()),
          options.certificate);
  }
  if (absent == Absent::kWait) {
    // Null: nobody is told, IsConnected() says it.
    natsOptions_SetRetryOnFailedConnect(
        made, true, [](natsConnection*, void*) {}, nullptr);
  }
  natsConnection* connection = nullptr;
  natsStatus status = NATS_OK;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    status = natsConnection_Connect(&connection, made);
    if (status != NATS_CONNECTION_AUTH_FAILED || options.key.empty()) break;
  }
  connections_.emplace_back(connection);
  connection_ = connection;
  if (status == NATS_OK || (status == NATS_NOT_YET_CONNECTED && absent == Absent::kWait)) return;
  if (status == NATS_CONNECTION_AUTH_FAILED || status == NATS_NOT_PERMITTED) {
    throw Failure(ExitCode::kNoPermission, fmt::format("{} does not let us in", where_),
                  "give the right --creds, --nkey or --certificate");
  }
  throw Failure(ExitCode::kUnreachable,
                fmt::format("no server answers at {}: {}", where_, TextOf(status, {})),
                "start one (nats-server -js), or name another with --server");
}

Server::~Server() {
  for (const Connection& connection : connections_) natsConnection_Close(connection.get());
}

bool Server::IsConnected() const {
  return natsConnection_Status(connection_) == NATS_CONN_STATUS_CONNECTED;
}

bool Server::IsClosed() const {
  return natsConnection_Status(connection_) == NATS_CONN_STATUS_CLOSED;
}

bool Server::ReviveIfClosed() {
  const auto now = std::chrono::steady_clock::now();
  if (natsConnection_Status(connection_) != NATS_CONN_STATUS_CLOSED || now < next_revival_) {
    return false;
  }
  next_revival_ = now + kRevivalPeriod;
  natsConnection* connection = nullptr;
  const natsStatus status = natsConnection_Connect(&connection, options_.get());
  if (status != NATS_OK && status != NATS_NOT_YET_CONNECTED) return false;
  connections_.emplace_back(connection);
  connection_ = connection;
  ++generation_;
  return true;
}

std::string Server::Url() const {
  char url[512] = "";
  if (!IsConnected()) return {};
  natsConnection_GetConnectedUrl(connection_, url, sizeof url);
  return WithoutSecret(url);
}

std::uint64_t Server::Reconnects() const {
  natsStatistics* made = nullptr;
  if (natsStatistics_Create(&made) != NATS_OK) return 0;
  const std::unique_ptr<natsStatistics, Destroyer<natsStatistics_Destroy>> statistics(made);
  std::uint64_t reconnects = 0;
  natsConnection_GetStats(connection_, made);
  natsStatistics_GetCounts(made, nullptr, nullptr, nullptr, nullptr, &reconnects);
  return reconnects;
}

std::size_t Server::MostBytes() const {
  if (!IsConnected()) return 0;
  return static_cast<std::size_t>(
      std::max<std::int64_t>(natsConnection_GetMaxPayload(connection_), 0));
}

std::string Server::LastError() const {
  const char* text = nullptr;
  natsConnection_GetLastError(connection_, &text);
  return text == nullptr ? "" : text;
}

Server::Stream Server::NewStreamContext(const jsOptions* options) const {
  jsOptions usual;
  jsOptions_Init(&usual);
  jsCtx* context = nullptr;
  jsOptions copy = options == nullptr ? usual : *options;
  Check(natsConnection_JetStream(&context, connection_, &copy), "streams");
  return Stream(context);
}

void Server::Publish(const std::string& subject, const Json& json) const {
  const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  natsConnection_Publish(connection_, subject.c_str(), text.data(), static_cast<int>(text.size()));
}

std::vector<Json> Server::Ask(const std::vector<std::string>& subjects, const Json& json,
                              std::chrono::milliseconds patience, std::size_t enough) const {
  natsInbox* inbox = nullptr;
  Check(natsInbox_Create(&inbox), "no inbox");
  // The client library's own function leaves the prefix out.
  const std::string to = inbox_ + std::strrchr(inbox, '.');
  natsInbox_Destroy(inbox);
  natsSubscription* made = nullptr;
  Check(natsConnection_SubscribeSync(&made, connection_, to.c_str()), to);
  const Subscription answers(made);
  const std::string text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
  for (const std::string& subject : subjects) {
    Check(natsConnection_PublishRequest(connection_, subject.c_str(), to.c_str(), text.data(),
                                        static_cast<int>(text.size())),
          subject);
  }
  std::vector<Json> all;
  std::size_t nobody = 0;  // listens on so many of the subjects
  const auto end = std::chrono::steady_clock::now() + patience;
  while (all.size() < enough && nobody < subjects.size()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    natsMsg* message = nullptr;
    const natsStatus status =
        natsSubscription_NextMsg(&message, answers.get(), std::max<std::int64_t>(left.count(), 1));
    const Message owner(message);
    if (status == NATS_NO_RESPONDERS || (message != nullptr && natsMsg_IsNoResponders(message))) {
      ++nobody;
    } else if (status != NATS_OK) {
      break;
    } else if (Json answer = JsonOf(message); answer.is_object()) {
      all.push_back(std::move(answer));
    }
  }
  return all;
}

Json JsonOf(natsMsg* message) {
  const char* const data = natsMsg_GetData(message);
  Json json = Json::parse(data, data + natsMsg_GetDataLength(message), nullptr, false);
  return json.is_discarded() ? Json() : json;
}

}  // namespace tool::fleet
