#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tessaline_test {

// Frame ids from one to another, both included.
struct IdRange {
  std::uint64_t first = 0;
  std::uint64_t last = 0;

  std::uint64_t Size() const { return last - first + 1; }
  bool Holds(const IdRange& other) const { return first <= other.first && other.last <= last; }
};

// The ids that one stream has delivered, as runs without a gap. Written by the stream's
// thread, read by any.
class FrameRuns {
 public:
  void Note(std::uint64_t id);

  std::uint64_t Last() const;
  std::uint64_t Frames() const;
  std::vector<IdRange> Runs() const;
  // Between the runs from the one with this id on.
  std::vector<IdRange> GapsBehind(std::uint64_t id) const;

 private:
  mutable std::mutex mutex_;
  std::vector<IdRange> runs_;
  std::uint64_t frames_ = 0;
};

// The ids up to `last` that are in none of the runs. Ids that are there twice, or that
// came in the wrong order, are told in `complaints`.
std::vector<IdRange> Missing(std::vector<IdRange> runs, std::uint64_t last,
                             std::vector<std::string>& complaints);

}  // namespace tessaline_test
