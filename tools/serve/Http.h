#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "Json.h"

namespace tool::serve {

// How a request came, which decides what it may do.
enum class Peer {
  kSocket,    // the Unix socket, whose permissions guard it
  kLoopback,  // this machine: may read without a token
  kRemote,    // needs the token for everything but the page
};

struct Request {
  std::string method;
  std::string path;                          // without the query
  std::map<std::string, std::string> query;  // decoded
  std::string token;                         // empty: none was sent
  std::string origin;                        // empty: not sent, so not by a browser's page
  std::string host;
  std::string body;
  Peer peer = Peer::kLoopback;
  std::string address;  // of the peer, for people
};

struct Response {
  int status = 200;
  std::string type = "application/json";
  std::string body;
  std::map<std::string, std::string> headers{};
};

using Respond = std::function<void(Response)>;

Response JsonResponse(int status, const Json& json);
// {"error": ..., "advice": ..., "status": ...}
Response ErrorResponse(int status, const std::string& error, const std::string& advice = {});

// Takes a request's target apart. False: it is none.
bool ParseTarget(std::string_view target, Request& request);

}  // namespace tool::serve
