#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Json.h"
#include "time/KernelClock.h"
#include "time/PtpStatus.h"

namespace tool {

// How good the host's clock is, and what is known about who sets it.
struct ClockSource {
  KernelClock kernel;
  PtpAnswer ptp;
  // Those that set clocks and run here. The kernel does not say which of them sets this one.
  std::vector<std::string> programs;

  // `ptp_socket`: of ptp4l, if it is not the usual one.
  static ClockSource Look(const std::string& ptp_socket = {});

  bool disciplined() const { return kernel.synchronised; }
  // How far the host's clock is from the right time, as what disciplines it states, which may be
  // wrong. Nothing if it is not disciplined, or if nothing is stated.
  std::optional<std::int64_t> LikelyErrorNs() const;
  std::optional<std::int64_t> MostErrorNs() const;

  // For people: what is known and what is not, a sentence each.
  std::vector<std::string> Sentences() const;
  Json AsJson() const;

 private:
  bool Runs(const std::string& program) const;
};

// "850 ns", "1.2 us", "3.5 ms", "16 s"
std::string TimeText(double ns);

}  // namespace tool
