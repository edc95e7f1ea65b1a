#include "thread/InterruptibleWait.h"

#include <atomic>

namespace VeltranoSDK {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<Clock::duration> last_moment{Clock::duration::max()};

}  // namespace

void EndWaitsBy(Clock::time_point moment) { last_moment = moment.time_since_epoch(); }

Clock::time_point LastMomentOfWaits() { return Clock::time_point(last_moment.load()); }

}  // namespace VeltranoSDK
