#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tessaline_test {

// A range of frame ids, both ends included.
struct IdRange {
  std::uint64_t first = 0;
  std::uint64_t last = 0;

  std::uint64_t Size() const { return last - first + 1; }
  bool Holds(const IdRange& other) const { return first <= other.first && other.last <= last; }
};

// The ids that one stream has delivered, as runs without a gap. The stream's thread writes, any
// thread reads.
class FrameRuns {
 public:
  void Note(std::uint64_t id);

  std::uint64_t Last() const;
  std::uint64_t Frames() const;
  std::vector<IdRange> Runs() const;
  // The gaps between the runs, starting with the run of this id.
  std::vector<IdRange> GapsBehind(std::uint64_t id) const;

 private:
  mutable std::mutex mutex_;
  std::vector<IdRange> runs_;
  std::uint64_t frames_ = 0;
};

// The ids up to `last` that are in none of the runs. Duplicate ids and ids in the wrong order
// become `complaints`.
std::vector<IdRange> Missing(std::vector<IdRange> runs, std::uint64_t last,
                             std::vector<std::string>& complaints);

}  // namespace tessaline_test
