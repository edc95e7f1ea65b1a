#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "serve/Http.h"

namespace tool::serve {

// The secret that allows to write. A new one has 128 random bits.
std::string NewToken();
// Reads one from a file. Throws a Failure if it is missing, too short, or others may read it.
std::string ReadToken(const std::string& path);

// Decides what a request may do.
class Gatekeeper {
 public:
  // `hosts`: names by which browsers reach us besides addresses and "localhost".
  Gatekeeper(std::string token, std::set<std::string> hosts);

  // Nothing: it may. Otherwise the answer.
  std::optional<Response> Refuse(const Request& request, bool writes);

 private:
  using Clock = std::chrono::steady_clock;
  bool HostIsOurs(std::string_view host) const;
  // Whether the page that sent it is ours.
  bool OriginIsOurs(const Request& request) const;
  bool TokenIsRight(const std::string& token) const;

  const std::string token_;
  const std::set<std::string> hosts_;
  // Guessing is slow.
  struct Guesses {
    unsigned wrong = 0;
    Clock::time_point since;
  };
  std::map<std::string, Guesses> guesses_;  // by address
};

}  // namespace tool::serve
