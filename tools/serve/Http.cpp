#include "serve/Http.h"

#include <charconv>
#include <optional>

#include "ExitCode.h"

namespace tool::serve {
namespace {

// What stands behind "%" and "+"; nothing if it is wrong.
std::optional<std::string> Decoded(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      plain += ' ';
    } else if (text[i] != '%') {
      plain += text[i];
    } else {
      unsigned code = 0;
      const std::string_view digits = text.substr(i + 1, 2);
      const auto [end, error] = std::from_chars(digits.begin(), digits.end(), code, 16);
      if (digits.size() != 2 || error != std::errc() || end != digits.end()) return std::nullopt;
      plain += static_cast<char>(code);
      i += 2;
    }
  }
  return plain;
}

ExitCode CodeFor(int status) {
  return status == 503   ? ExitCode::kUnreachable
         : status == 409 ? ExitCode::kNegative
                         : ExitCode::kUsage;
}

}  // namespace

Response JsonResponse(int status, const Json& json) {
  return {status, "application/json",
          json.dump(2, ' ', false, Json::error_handler_t::replace) + '\n'};
}

Response ErrorResponse(int status, const std::string& error, const std::string& advice) {
  return JsonResponse(
      status,
      {{"error", error}, {"advice", advice}, {"status", static_cast<int>(CodeFor(status))}});
}

bool ParseTarget(std::string_view target, Request& request) {
  if (target.empty() || target.front() != '/') return false;
  const std::size_t mark = target.find('?');
  const auto path = Decoded(target.substr(0, mark));
  if (!path) return false;
  request.path = *path;
  if (mark == target.npos) return true;
  for (std::string_view rest = target.substr(mark + 1); !rest.empty();) {
    const std::size_t end = std::min(rest.find('&'), rest.size());
    const std::string_view pair = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    const std::size_t equals = std::min(pair.find('='), pair.size());
    const auto name = Decoded(pair.substr(0, equals));
    const auto value = Decoded(pair.substr(std::min(equals + 1, pair.size())));
    if (!name || !value) return false;
    request.query[*name] = *value;
  }
  return true;
}

}  // namespace tool::serve
