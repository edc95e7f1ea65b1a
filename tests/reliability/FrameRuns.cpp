#include "reliability/FrameRuns.h"

#include <algorithm>

namespace tessaline_test {

void FrameRuns::Note(std::uint64_t id) {
  const std::lock_guard lock(mutex_);
  ++frames_;
  if (!runs_.empty() && id == runs_.back().last + 1) {
    runs_.back().last = id;
  } else {
    runs_.push_back({id, id});
  }
}

std::uint64_t FrameRuns::Last() const {
  const std::lock_guard lock(mutex_);
  return runs_.empty() ? 0 : runs_.back().last;
}

std::uint64_t FrameRuns::Frames() const {
  const std::lock_guard lock(mutex_);
  return frames_;
}

std::vector<IdRange> FrameRuns::Runs() const {
  const std::lock_guard lock(mutex_);
  return runs_;
}

std::vector<IdRange> FrameRuns::GapsBehind(std::uint64_t id) const {
  const std::lock_guard lock(mutex_);
  std::vector<IdRange> gaps;
  for (auto run = runs_.rbegin(); run != runs_.rend() && run->first > id; ++run) {
    const auto earlier = run + 1;
    if (earlier != runs_.rend()) gaps.push_back({earlier->last + 1, run->first - 1});
  }
  return gaps;
}

std::vector<IdRange> Missing(std::vector<IdRange> runs, std::uint64_t last,
                             std::vector<std::string>& complaints) {
  std::vector<IdRange> missing;
  std::sort(runs.begin(), runs.end(),
            [](const IdRange& a, const IdRange& b) { return a.first < b.first; });
  std::uint64_t next = 1;
  for (const IdRange& run : runs) {
    if (run.first < next) {
      complaints.push_back("frame " + std::to_string(run.first) + " came more than once");
    } else if (run.first > next) {
      missing.push_back({next, run.first - 1});
    }
    next = std::max(next, run.last + 1);
  }
  if (next <= last) missing.push_back({next, last});
  return missing;
}

}  // namespace tessaline_test
