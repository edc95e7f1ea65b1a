#include "Calls.h"

#include <errno.h>

#include <algorithm>
#include <array>
#include <map>
#include <span>
#include <sstream>
#include <string_view>
#include <tuple>

#include "tessaline/board.h"

namespace reliability {
namespace {

struct Errors {
  std::string_view operation;
  std::span<const int> errors;
};

// A format or a buffer request that comes too late is EBUSY by itself, so EBUSY would
// not show which one failed.
constexpr int kOpenErrors[] = {ENODEV, EIO, EBUSY, ENOMEM, EAGAIN, EINTR};
constexpr int kMmapErrors[] = {ENODEV, ENOMEM, EAGAIN};
constexpr int kReadErrors[] = {EIO, ENODEV, EAGAIN, EINTR, TESSALINE_BOARD_SHORT};
constexpr int kWriteErrors[] = {EIO, ENODEV, EBUSY, ENOMEM, EAGAIN, EINTR, TESSALINE_BOARD_SHORT};
constexpr int kTransferErrors[] = {
    EIO, ENODEV, EBUSY, ENOMEM, EAGAIN, EINTR, TESSALINE_BOARD_SHORT};
constexpr int kFormatErrors[] = {EIO, ENODEV, EINTR};
constexpr int kBufferErrors[] = {ENOMEM, EIO, ENODEV, EINTR};
constexpr int kDequeueErrors[] = {EIO, ENODEV, EAGAIN, EINTR};
constexpr int kOtherErrors[] = {EIO, ENODEV, EBUSY, EINTR};

constexpr std::array kErrors{
    Errors{"open", kOpenErrors},
    Errors{"mmap", kMmapErrors},
    Errors{"read", kReadErrors},
    Errors{"write", kWriteErrors},
    Errors{"I2C_RDWR", kTransferErrors},
    Errors{"SPI_IOC_MESSAGE", kTransferErrors},
    Errors{"VIDIOC_TRY_FMT", kFormatErrors},
    Errors{"VIDIOC_S_FMT", kFormatErrors},
    Errors{"VIDIOC_REQBUFS", kBufferErrors},
    Errors{"VIDIOC_DQBUF", kDequeueErrors},
};

std::span<const int> ErrorsOf(std::string_view operation) {
  const auto* const at = std::ranges::find(kErrors, operation, &Errors::operation);
  return at == kErrors.end() ? std::span<const int>(kOtherErrors) : at->errors;
}

// The settings an SPI access makes before its transfer, all at one place in the code and
// all told in the same way: of each access only one fails, each in turn.
constexpr std::array<std::string_view, 8> kSettings{
    "SPI_IOC_WR_MODE",         "SPI_IOC_RD_MODE",          "SPI_IOC_WR_LSB_FIRST",
    "SPI_IOC_RD_LSB_FIRST",    "SPI_IOC_WR_BITS_PER_WORD", "SPI_IOC_RD_BITS_PER_WORD",
    "SPI_IOC_WR_MAX_SPEED_HZ", "SPI_IOC_RD_MAX_SPEED_HZ"};

bool IsItsTurn(const Call& call) {
  const auto* const at = std::ranges::find(kSettings, call.operation);
  // The first access has all of them: on some boards there is only one.
  return at == kSettings.end() || call.nth == 0 ||
         call.nth % kSettings.size() == static_cast<std::size_t>(at - kSettings.begin());
}

// "write IMAGE_BLOCK_1 TRI_SPACING" of "fpga write IMAGE_BLOCK_1 TRI_SPACING = 0x00030d40"; nothing
// of what is no register access.
std::string AccessIn(const std::string& event) {
  std::istringstream words(event);
  std::string device;
  std::string kind;
  std::string block;
  std::string name;
  words >> device >> kind >> block >> name;
  const bool is_access = device == "fpga" && (kind == "read" || kind == "write");
  return is_access ? kind + ' ' + block + ' ' + name : std::string();
}

}  // namespace

std::vector<Call> CallsOf(const std::vector<std::string>& events) {
  constexpr std::string_view kCalled = " called";
  constexpr std::string_view kIn = "in ";
  std::map<std::string, unsigned> seen;
  std::vector<Call> calls;
  std::size_t unnamed = 0;  // the end of their step is further down
  unsigned step = 0;
  bool mapped = false;  // one access at a time: the next one is this mapping's
  for (const std::string& event : events) {
    if (event.ends_with(kCalled)) {
      const std::string name = event.substr(0, event.size() - kCalled.size());
      const auto blank = name.find(' ');
      const Call call{name.substr(0, blank), name.substr(blank + 1), step, seen[name]++};
      if (IsItsTurn(call)) calls.push_back(call);
      if (call.device == "fpga") mapped = call.operation == "mmap";
    } else if (event.starts_with(kIn)) {
      const std::string during = event.substr(kIn.size(), event.find(" = ") - kIn.size());
      for (; unnamed < calls.size(); ++unnamed) calls[unnamed].during = during;
      seen.clear();
      ++step;
    } else if (const std::string access = AccessIn(event); mapped && !access.empty()) {
      const auto mapping = std::find_if(calls.rbegin(), calls.rend(), [](const Call& call) {
        return call.device == "fpga" && call.operation == "mmap";
      });
      mapping->access = access;
      mapped = false;
    }
  }
  calls.resize(unnamed);  // behind the last step nothing is the tour's
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
