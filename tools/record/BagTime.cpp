#include "record/BagTime.h"

#include <fmt/format.h>
#include <time.h>

#include <charconv>
#include <cmath>
#include <string_view>

#include "Failure.h"

namespace tool {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr double kMostSeconds = 8e9;  // in nanoseconds, they fit

[[noreturn]] void Refuse(const std::string& text) {
  throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is no time", text),
                "give seconds from the start (2.5), seconds since 1970 (@1700000000), or "
                "2026-05-01T12:30:00 with Z behind it for UTC");
}

std::int64_t NsIn(std::string_view number, const std::string& text) {
  double seconds = 0;
  const char* const end = number.data() + number.size();
  const auto [behind, error] = std::from_chars(number.data(), end, seconds);
  if (error != std::errc() || behind != end || !(std::abs(seconds) < kMostSeconds)) Refuse(text);
  // In two parts: nanoseconds since 1970 have more digits than a double.
  const double whole = std::floor(seconds);
  return static_cast<std::int64_t>(whole) * kNsPerSecond +
         std::llround((seconds - whole) * kNsPerSecond);
}

}  // namespace

std::int64_t MomentOf(const std::string& text, std::int64_t start_ns) {
  if (text.starts_with('@')) return NsIn(std::string_view(text).substr(1), text);
  tm date{};
  const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &date);
  if (rest == nullptr) {
    std::int64_t moment = 0;
    if (__builtin_add_overflow(start_ns, NsIn(text, text), &moment)) Refuse(text);
    return moment;
  }
  std::string_view fraction(rest);
  const bool utc = fraction.ends_with('Z');
  if (utc) fraction.remove_suffix(1);
  if (!fraction.empty() && fraction[0] != '.') Refuse(text);
  date.tm_isdst = -1;
  const time_t seconds = utc ? timegm(&date) : mktime(&date);
  if (std::abs(static_cast<double>(seconds)) > kMostSeconds) Refuse(text);
  return seconds * kNsPerSecond + (fraction.empty() ? 0 : NsIn(fraction, text));
}

std::string TextOfMoment(std::int64_t ns) {
  time_t seconds = ns / kNsPerSecond;
  std::int64_t rest = ns % kNsPerSecond;
  if (rest < 0) {
    rest += kNsPerSecond;
    --seconds;
  }
  tm date{};
  gmtime_r(&seconds, &date);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &date);
  return fmt::format("{}.{:03}Z", text, rest / 1'000'000);
}

}  // namespace tool
