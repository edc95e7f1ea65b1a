#include "time/PtpStatus.h"

#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <vector>

#include "time/ProgramOutput.h"

namespace tool {
namespace {

// The first one is only to ask, and open to all; linuxptp 3.1.1 does not have it. The other is
// root's.
constexpr std::array kSockets{"/var/run/ptp4lro", "/var/run/ptp4l"};

constexpr std::array kQuestions{"GET TIME_STATUS_NP", "GET PORT_DATA_SET", "GET CURRENT_DATA_SET"};
constexpr std::chrono::seconds kPatience{2};

// Of several ports the one with the most to say.
int Rank(const std::string& state) {
  if (state == "SLAVE") return 2;
  return state == "UNCALIBRATED" ? 1 : 0;
}

std::int64_t Rounded(const std::string& number) {
  return std::llround(std::strtod(number.c_str(), nullptr));
}

std::string ExistingSocket() {
  std::error_code ignored;
  for (const char* const path : kSockets) {
    if (std::filesystem::exists(path, ignored)) return path;
  }
  return {};
}

// pmc wants an address of its own for the answers.
class AnswerFolder {
 public:
  AnswerFolder() {
    if (mkdtemp(path_.data()) == nullptr) path_.clear();
  }
  ~AnswerFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  AnswerFolder(const AnswerFolder&) = delete;
  AnswerFolder& operator=(const AnswerFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/tmp/tessaline-pmc-XXXXXX";
};

}  // namespace

std::optional<PtpStatus> PtpStatus::From(const std::string& text) {
  PtpStatus status;
  bool answered = false;
  bool has_grandmaster = false;
  std::optional<std::int64_t> offset;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string key;
    std::string value;
    if (!(words >> key >> value)) continue;
    if (key == "portState") {
      answered = true;
      if (status.port_state.empty() || Rank(value) > Rank(status.port_state)) {
        status.port_state = value;
      }
    } else if (key == "gmPresent") {
      has_grandmaster = value == "true";
    } else if (key == "gmIdentity") {
      status.grandmaster = value;
    } else if (key == "master_offset") {
      offset = Rounded(value);
    } else if (key == "meanPathDelay") {
      status.path_delay_ns = Rounded(value);
    }
  }
  if (!answered) return std::nullopt;
  if (has_grandmaster) {
    status.offset_ns = offset;
  } else {  // it names itself, and offsets of zero
    status.grandmaster.clear();
    status.path_delay_ns.reset();
  }
  return status;
}

PtpAnswer AskPtp(const std::string& socket) {
  const std::string path = socket.empty() ? ExistingSocket() : socket;
  if (path.empty()) return {};
  const AnswerFolder folder;
  std::vector<std::string> words{"pmc", "-u", "-b", "0", "-s", path, "-i", folder.path() + "/pmc"};
  words.insert(words.end(), kQuestions.begin(), kQuestions.end());
  const auto printed = ProgramOutput(words, kPatience);
  if (!printed) {
    return {{}, fmt::format("{} is there, but not pmc to ask it: install linuxptp", path)};
  }
  const auto status = PtpStatus::From(*printed);
  if (!status) {
    return {{},
            fmt::format("nobody answers behind {}: ptp4l has ended, or it is of another PTP "
                        "domain than 0, or the socket is not for you (try sudo)",
                        path)};
  }
  return {status, {}};
}

}  // namespace tool
