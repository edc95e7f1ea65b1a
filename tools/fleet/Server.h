#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Failure.h"
#include "Json.h"
#include "fleet/Names.h"
#include "fleet/Nats.h"
#include "fleet/ServerOptions.h"

namespace tool::fleet {

// Throws a Failure that says what could not be done, unless `status` is NATS_OK.
void Check(natsStatus status, const std::string& what);

// "jetstream not enabled (10076)", or the client library's own text.
std::string TextOf(natsStatus status, jsErrCode code);

// A connection to the servers, which is made again whenever it breaks.
class Server {
 public:
  enum class Absent { kFail, kWait };  // a server that cannot be reached now

  // `name`: who we are, a sensor's name or the like. Throws a Failure if the server refuses us, or,
  // with kFail, cannot be reached.
  Server(const ServerOptions& options, Role role, const std::string& name, Absent absent);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  bool IsConnected() const;
  // The client library has given up; see ReviveIfClosed().
  bool IsClosed() const;
  // What was given, without the secrets in it.
  const std::string& Where() const { return where_; }
  // The server that it is connected to; empty: none.
  std::string Url() const;
  // How often it has been made again.
  std::uint64_t Reconnects() const;
  // The client library gives up for good when a server has refused us twice, which a wrong
  // configuration of the server is enough for. Then this tries to make another connection, not more
  // often than once a second. True: there is one, which has no subscriptions yet.
  bool ReviveIfClosed();
  // How often there was another one.
  std::uint64_t generation() const { return generation_; }
  // Bytes that a message may have, headers included; 0: not known yet.
  std::size_t MostBytes() const;
  // Why the last attempt failed; empty: none did.
  std::string LastError() const;

  natsConnection* connection() const { return connection_; }
  // With these options; null: the usual ones.
  using Stream = std::unique_ptr<jsCtx, Destroyer<jsCtx_Destroy>>;
  Stream NewStreamContext(const jsOptions* options = nullptr) const;

  void Publish(const std::string& subject, const Json& json) const;
  // Asks on all these subjects at once. Returns the answers that come within a time, or the first
  // `enough`.
  std::vector<Json> Ask(const std::vector<std::string>& subjects, const Json& json,
                        std::chrono::milliseconds patience, std::size_t enough) const;

 private:
  const std::string inbox_;
  const std::string where_;
  std::unique_ptr<natsOptions, Destroyer<natsOptions_Destroy>> options_;
  using Connection = std::unique_ptr<natsConnection, Destroyer<natsConnection_Destroy>>;
  std::vector<Connection> connections_;  // the old ones, too: other threads may still use them
  std::atomic<natsConnection*> connection_ = nullptr;
  std::atomic<std::uint64_t> generation_ = 0;
  std::chrono::steady_clock::time_point next_revival_;
};

Json JsonOf(natsMsg* message);

}  // namespace tool::fleet
