#include "fleet/ServerOptions.h"

#include <fmt/core.h>

#include <sstream>

#include "Failure.h"
#include "VirtualBoard.h"

namespace tool::fleet {
namespace {

constexpr const char* kVariable = "NATS_URL";
constexpr const char* kDefault = "nats://127.0.0.1:4222";

}  // namespace

void ServerOptions::Describe(CLI::App& app) {
  app.add_option("--server", urls,
                 fmt::format("The server's URL, or several of one cluster with commas between "
                             "(default: {}, else {})",
                             kVariable, kDefault))
      ->type_name("URL");
  app.add_option("--creds", credentials, "File with the user's credentials")->type_name("FILE");
  app.add_option("--nkey", key, "File with the user's NKey (tessaline fleet key)")
      ->type_name("FILE");
  app.add_option("--ca", authority, "Certificates that the server's has to come from, a PEM file")
      ->type_name("FILE");
  CLI::Option* const own =
      app.add_option("--certificate", certificate, "Our own certificate, a PEM file")
          ->type_name("FILE");
  CLI::Option* const key_of_it =
      app.add_option("--certificate-key", certificate_key, "Its private key, a PEM file")
          ->type_name("FILE");
  own->needs(key_of_it);
  key_of_it->needs(own);
}

std::string ServerOptions::Urls() const {
  const std::string variable = Environment(kVariable);
  const std::string& all = !urls.empty() ? urls : variable;
  if (all.empty()) return kDefault;
  std::istringstream list(all);
  for (std::string url; std::getline(list, url, ',');) {
    const std::size_t scheme = url.find("://");
    const std::string_view name = std::string_view(url).substr(0, scheme);
    const bool known = scheme == url.npos || name == "nats" || name == "tls";
    if (url.empty() || !known || url.find_first_of(" \t") != url.npos) {
      throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is no server's URL", url),
                    "it looks like nats://hub:4222, or tls://hub:4222");
    }
    if (url.find('@') != url.npos && !urls.empty()) {
      throw Failure(ExitCode::kUsage,
                    "a secret on the command line can be read by everybody on this machine",
                    fmt::format("use --creds, --nkey or {}", kVariable));
    }
  }
  return all;
}

}  // namespace tool::fleet
