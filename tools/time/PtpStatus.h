#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tool {

// What ptp4l (linuxptp) says through its management socket.
struct PtpStatus {
  std::string port_state;  // SLAVE: it follows; also MASTER, UNCALIBRATED, LISTENING ...
  // When it follows, or is about to.
  std::optional<std::int64_t> offset_ns;  // from the grandmaster, measured last
  std::optional<std::int64_t> path_delay_ns;
  std::string grandmaster;

  bool follows() const { return port_state == "SLAVE"; }

  // Of what pmc prints. Of several ports, the one that follows, or is about to. Nothing if there is
  // no answer in it.
  static std::optional<PtpStatus> From(const std::string& text);
};

// An attempt to ask.
struct PtpAnswer {
  std::optional<PtpStatus> status;
  std::string problem;  // why there is none; empty if no ptp4l runs here
};

// Asks the ptp4l behind this socket; empty: its usual ones. Takes up to two seconds.
PtpAnswer AskPtp(const std::string& socket = {});

}  // namespace tool
