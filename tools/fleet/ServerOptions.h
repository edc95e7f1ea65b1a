#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tool::fleet {

// Where the servers are, and who we are to them.
struct ServerOptions {
  std::string urls;         // with commas between; empty: NATS_URL, or this machine's
  std::string credentials;  // files
  std::string key;
  std::string authority;
  std::string certificate;
  std::string certificate_key;

  void Describe(CLI::App& app);
  // The URLs, by option, variable or default. Throws a Failure for one that no server can have, and
  // for one on the command line with a secret in it.
  std::string Urls() const;
};

}  // namespace tool::fleet
