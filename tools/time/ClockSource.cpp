#include "time/ClockSource.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace tool {
namespace {

// As the kernel names processes: 15 letters.
constexpr std::array<std::string_view, 6> kPrograms{"chronyd",         "ntpd",  "openntpd",
                                                    "systemd-timesyn", "ptp4l", "phc2sys"};

std::vector<std::string> RunningPrograms() {
  std::vector<std::string> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string number = entry.path().filename();
    if (!std::all_of(number.begin(), number.end(), [](unsigned char c) { return isdigit(c); })) {
      continue;
    }
    std::string name;
    std::getline(std::ifstream(entry.path() / "comm"), name);
    const bool sets = std::find(kPrograms.begin(), kPrograms.end(), name) != kPrograms.end();
    if (sets && std::find(found.begin(), found.end(), name) == found.end()) found.push_back(name);
  }
  std::sort(found.begin(), found.end());
  return found;
}

template <typename T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

std::string Stated(const std::optional<std::int64_t>& ns) {
  return ns ? TimeText(static_cast<double>(*ns)) : "not stated";
}

}  // namespace

std::string TimeText(double ns) {
  struct Unit {
    double ns;
    const char* name;
  };
  for (const Unit& unit : {Unit{1e9, "s"}, Unit{1e6, "ms"}, Unit{1e3, "us"}}) {
    if (std::abs(ns) >= unit.ns) return fmt::format("{:.3g} {}", ns / unit.ns, unit.name);
  }
  return fmt::format("{:.0f} ns", ns);
}

ClockSource ClockSource::Look(const std::string& ptp_socket) {
  return {KernelClock::Read(), AskPtp(ptp_socket), RunningPrograms()};
}

bool ClockSource::Runs(const std::string& program) const {
  return std::find(programs.begin(), programs.end(), program) != programs.end();
}

// ptp4l and phc2sys tell the kernel nothing likely; the offset is what they work on.
std::optional<std::int64_t> ClockSource::LikelyErrorNs() const {
  if (!disciplined()) return std::nullopt;
  if (!ptp.status || !ptp.status->follows() || !ptp.status->offset_ns) {
    return kernel.likely_error_ns;
  }
  return std::abs(*ptp.status->offset_ns);
}

std::optional<std::int64_t> ClockSource::MostErrorNs() const {
  if (!kernel.most_error_ns) return std::nullopt;
  return std::max(*kernel.most_error_ns, LikelyErrorNs().value_or(0));
}

std::vector<std::string> ClockSource::Sentences() const {
  std::vector<std::string> lines;
  if (disciplined()) {
    lines.push_back(fmt::format("The kernel calls it synchronised: at most {}, likely {}.",
                                Stated(kernel.most_error_ns), Stated(kernel.likely_error_ns)));
  } else {
    lines.emplace_back("NOT DISCIPLINED: the kernel calls it unsynchronised.");
    lines.emplace_back("Times of several hosts cannot be compared.");
  }
  lines.push_back(programs.empty()
                      ? "No program that sets clocks is seen here."
                      : fmt::format("Programs that set clocks run here: {}. The kernel does not "
                                    "tell which of them sets this one.",
                                    fmt::join(programs, ", ")));
  if (!disciplined() && Runs("chronyd")) {
    lines.emplace_back("chronyd tells the kernel only with \"rtcsync\" in its configuration.");
  }
  if (!ptp.problem.empty()) lines.push_back("PTP: " + ptp.problem + ".");
  if (!ptp.status) return lines;
  const PtpStatus& port = *ptp.status;
  if (!port.follows()) {
    lines.push_back(fmt::format("PTP: the port is {}, so ptp4l sets no clock.", port.port_state));
    return lines;
  }
  lines.push_back(fmt::format(
      "PTP: ptp4l follows the grandmaster {}; it last measured an offset of {} over a path of {}.",
      port.grandmaster, Stated(port.offset_ns), Stated(port.path_delay_ns)));
  lines.push_back(
      Runs("phc2sys")
          ? "With hardware time stamps that is the clock of the network card. phc2sys runs; "
            "whether "
            "it carries that time into this clock, and how well, cannot be asked: see its log."
          : "With hardware time stamps that is the clock of the network card, and no phc2sys is "
            "seen that carries it into this clock. With software time stamps it is this clock.");
  lines.emplace_back("A path that is longer one way than the other is in no number.");
  return lines;
}

Json ClockSource::AsJson() const {
  Json json{{"synchronised", kernel.synchronised},
            {"most_error_ns", OrNull(kernel.most_error_ns)},
            {"likely_error_ns", OrNull(kernel.likely_error_ns)},
            {"tai_offset_s", OrNull(kernel.tai_offset_s)},
            {"programs", programs}};
  if (ptp.status) {
    json["ptp"] = {{"port_state", ptp.status->port_state},
                   {"grandmaster", ptp.status->grandmaster},
                   {"offset_ns", OrNull(ptp.status->offset_ns)},
                   {"path_delay_ns", OrNull(ptp.status->path_delay_ns)}};
  } else {
    json["ptp"] = nullptr;
    if (!ptp.problem.empty()) json["ptp_problem"] = ptp.problem;
  }
  return json;
}

}  // namespace tool
