#include "Faults.h"

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "Transcript.h"

namespace board {
namespace {

// `skip` matching calls succeed, then `left` calls fail. If `left` starts at 0, all later calls
// fail.
struct Countdown {
  unsigned skip;
  unsigned left;
  bool unlimited;

  bool Strikes() {
    if (skip > 0) {
      --skip;
      return false;
    }
    if (unlimited) return true;
    if (left == 0) return false;
    --left;
    return true;
  }
};

struct CallFault {
  std::string device;
  std::string operation;
  int error;
  Countdown countdown;
};

struct StreamFault {
  int stream;
  FrameFault kind;
  Countdown countdown;
};

struct Plan {
  std::mutex mutex;
  std::vector<CallFault> calls;
  std::vector<StreamFault> frames;
};

Plan& ThePlan() {
  static Plan* plan = new Plan;
  return *plan;
}

// Most runs plant no faults. A query then costs one load and no lock.
std::atomic<bool> anything_planted{false};

bool Matches(const std::string& pattern, std::string_view name) {
  return pattern == "*" || pattern == name;
}

}  // namespace

CallFate PlantedFault(std::string_view device, std::string_view operation) {
  if (!anything_planted) return {};
  Plan& plan = ThePlan();
  const std::lock_guard lock(plan.mutex);
  for (CallFault& fault : plan.calls) {
    if (!Matches(fault.device, device) || !Matches(fault.operation, operation) ||
        !fault.countdown.Strikes()) {
      continue;
    }
    const std::string name(operation);
    switch (fault.error) {
      case TESSALINE_BOARD_CALLED:
        Record(device, name + " called");
        continue;
      case TESSALINE_BOARD_SHORT:
        Record(device, name + " cut short");
        return {.cut_short = true};
      default:
        Record(device, name + " failed: " + ErrnoName(fault.error));
        return {.error = fault.error};
    }
  }
  return {};
}

FrameFault FrameFaultFor(int stream) {
  if (!anything_planted) return FrameFault::kNone;
  Plan& plan = ThePlan();
  const std::lock_guard lock(plan.mutex);
  for (StreamFault& fault : plan.frames) {
    if (fault.stream == stream && fault.countdown.Strikes()) return fault.kind;
  }
  return FrameFault::kNone;
}

void PlantFault(std::string_view device, std::string_view operation, unsigned skip, unsigned count,
                int error) {
  Plan& plan = ThePlan();
  const std::lock_guard lock(plan.mutex);
  plan.calls.push_back(
      {std::string(device), std::string(operation), error, {skip, count, count == 0}});
  anything_planted = true;
}

void PlantFrameFault(int stream, enum tessaline_board_frame_fault kind, unsigned skip,
                     unsigned count) {
  constexpr FrameFault kKinds[] = {FrameFault::kLost, FrameFault::kLate, FrameFault::kTruncated,
                                   FrameFault::kCorrupt};
  Plan& plan = ThePlan();
  const std::lock_guard lock(plan.mutex);
  plan.frames.push_back({stream, kKinds[kind], {skip, count, count == 0}});
  anything_planted = true;
}

void ClearFaults() {
  Plan& plan = ThePlan();
  const std::lock_guard lock(plan.mutex);
  plan.calls.clear();
  plan.frames.clear();
  anything_planted = false;
}

}  // namespace board
