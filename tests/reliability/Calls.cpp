#include "Calls.h"

#include <errno.h>

#include <algorithm>
#include <array>
#include <map>
#include <span>
#include <string_view>
#include <tuple>

#include "tessaline/board.h"

namespace reliability {
namespace {

struct Errors {
  std::string_view operation;
  std::span<const int> errors;
};

// A late format or buffer request fails with EBUSY anyway, so EBUSY would not show which one
// failed.
constexpr int kOpenErrors[] = {ENODEV, EIO, EBUSY, ENOMEM, EAGAIN, EINTR};
constexpr int kMmapErrors[] = {ENODEV, ENOMEM, EAGAIN};
constexpr int kReadErrors[] = {EIO, ENODEV, EAGAIN, EINTR, TESSALINE_BOARD_SHORT};
constexpr int kWriteErrors[] = {EIO, ENODEV, EBUSY, ENOMEM, EAGAIN, EINTR, TESSALINE_BOARD_SHORT};
constexpr int kTransferErrors[] = {
    EIO, ENODEV, EBUSY, ENOMEM, EAGAIN, EINTR, TESSALINE_BOARD_SHORT};
constexpr int kFormatErrors[] = {EIO, ENODEV, EINTR};
constexpr int kBufferErrors[] = {ENOMEM, EIO, ENODEV, EINTR};
constexpr int kDequeueErrors[] = {EIO, ENODEV, EAGAIN, EINTR};
constexpr int kStreamErrors[] = {EIO, ENODEV, EBUSY, ENOMEM, EAGAIN, EINTR};
constexpr int kPollErrors[] = {ENOMEM,
                               EINTR};  // a device's own errors are not failures of the call
constexpr int kOtherErrors[] = {EIO, ENODEV, EBUSY, EINTR};

constexpr std::array kErrors{
    Errors{"open", kOpenErrors},
    Errors{"mmap", kMmapErrors},
    Errors{"poll", kPollErrors},
    Errors{"read", kReadErrors},
    Errors{"write", kWriteErrors},
    Errors{"I2C_RDWR", kTransferErrors},
    Errors{"SPI_IOC_MESSAGE", kTransferErrors},
    Errors{"VIDIOC_TRY_FMT", kFormatErrors},
    Errors{"VIDIOC_S_FMT", kFormatErrors},
    Errors{"VIDIOC_REQBUFS", kBufferErrors},
    Errors{"VIDIOC_QBUF", kStreamErrors},
    Errors{"VIDIOC_DQBUF", kDequeueErrors},
    Errors{"VIDIOC_STREAMON", kStreamErrors},
};

std::span<const int> ErrorsOf(std::string_view operation) {
  const auto* const at = std::ranges::find(kErrors, operation, &Errors::operation);
  return at == kErrors.end() ? std::span<const int>(kOtherErrors) : at->errors;
}

// The settings that an SPI access makes before its transfer. They are in one place in the code and
// are all reported in the same way, so only one fails per access, each in turn.
constexpr std::array<std::string_view, 8> kSettings{
    "SPI_IOC_WR_MODE",         "SPI_IOC_RD_MODE",          "SPI_IOC_WR_LSB_FIRST",
    "SPI_IOC_RD_LSB_FIRST",    "SPI_IOC_WR_BITS_PER_WORD", "SPI_IOC_RD_BITS_PER_WORD",
    "SPI_IOC_WR_MAX_SPEED_HZ", "SPI_IOC_RD_MAX_SPEED_HZ"};

bool IsItsTurn(const Call& call) {
  const auto* const at = std::ranges::find(kSettings, call.operation);
  // For the first access all of them fail in turn, because some boards make only one access.
  return at == kSettings.end() || call.nth == 0 ||
         call.nth % kSettings.size() == static_cast<std::size_t>(at - kSettings.begin());
}

// The purpose of such a call is the next event of its device.
bool HasAccess(const Call& call) {
  return call.device == "fpga" || call.device.starts_with("spi") ||
         (call.device == "gpio" && call.operation == "write");
}

// A register's mapping belongs to the open before it. All other calls are separate.
bool IsPartOf(const Call& first, const Call& call) {
  return first.device == "fpga" && first.operation == "open" && call.device == "fpga" &&
         call.operation == "mmap";
}

}  // namespace

std::vector<Call> CallsOf(const std::vector<std::string>& events) {
  constexpr std::string_view kCalled = " called";
  constexpr std::string_view kIn = "in ";
  std::map<std::string, unsigned> seen;
  std::vector<Call> calls;
  std::size_t unnamed = 0;  // calls from here on have no step name yet
  unsigned step = 0;
  std::vector<std::size_t> open;  // the calls whose access follows later
  for (const std::string& event : events) {
    const std::string device = event.substr(0, event.find(' '));
    if (event.ends_with(kCalled)) {
      const std::string name = event.substr(0, event.size() - kCalled.size());
      const Call call{device, name.substr(device.size() + 1), step, seen[name]++};
      const bool goes_on = !open.empty() && IsPartOf(calls[open.back()], call);
      const bool is_next = !open.empty() && device == calls[open.back()].device;
      if (!goes_on && (is_next || HasAccess(call))) open.clear();
      if (!IsItsTurn(call)) continue;
      calls.push_back(call);
      if (HasAccess(call)) open.push_back(calls.size() - 1);
    } else if (event.starts_with(kIn)) {
      const std::string during = event.substr(kIn.size(), event.find(" = ") - kIn.size());
      for (; unnamed < calls.size(); ++unnamed) calls[unnamed].during = during;
      seen.clear();
      ++step;
    } else if (!open.empty() && device == calls[open.back()].device) {
      for (const std::size_t one : open) calls[one].access = event.substr(device.size() + 1);
      open.clear();
    }
  }
  calls.resize(unnamed);  // calls after the last step do not belong to the tour
  return calls;
}

std::vector<Failure> FailuresOf(const std::vector<Call>& calls, bool all_errors) {
  struct Group {
    const Call* last = nullptr;
    std::size_t failures = 0;
  };
  std::map<std::tuple<std::string, std::string, std::string>, Group> groups;
  std::vector<Failure> failures;
  for (const Call& call : calls) {
    const auto errors = ErrorsOf(call.operation);
    Group& group = groups[{call.device, call.operation, call.during}];
    group.last = &call;
    for (std::size_t i = 0; i < (all_errors ? errors.size() : 1); ++i) {
      failures.push_back({call, errors[group.failures++ % errors.size()]});
    }
  }
  for (auto& [name, group] : groups) {
    const auto errors = ErrorsOf(group.last->operation);
    for (; group.failures < errors.size(); ++group.failures) {
      failures.push_back({*group.last, errors[group.failures]});
    }
  }
  return failures;
}

}  // namespace reliability
