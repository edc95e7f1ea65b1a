#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace tool {

// Frame ids, both ends included.
struct IdRange {
  std::uint64_t first;
  std::uint64_t last;
  bool Has(std::uint64_t id) const { return id >= first && id <= last; }
};

// Which of the ids that are missing gap messages name. A message may come before or after the hole
// that it explains shows; each id that it names explains one that is missing. In memory that does
// not grow with the file.
class GapMatch {
 public:
  // Holes and messages that wait for each other. Older ones have waited long enough.
  static constexpr std::size_t kMostWaiting = 1000;
  static constexpr std::size_t kMostTold = 10;

  // These ids are missing between two frames.
  void AddHole(IdRange hole);
  // A message says that these are lost; without a last one, all up to the next that is there.
  void AddNamed(std::uint64_t first, std::optional<std::uint64_t> last);
  // The count of ids begins anew behind this one.
  void AddRestart(std::uint64_t last);

  // How many missing ids have been named.
  std::uint64_t named() const { return named_; }
  // The first holes, or parts of them, that nothing explains.
  std::vector<IdRange> FirstUnexplained() const;

 private:
  void KeepHole(IdRange hole);
  void AddOpen(std::uint64_t first);

  std::deque<IdRange> holes_;         // not explained yet
  std::deque<IdRange> waiting_;       // named, and not seen to be missing yet
  std::deque<std::uint64_t> open_;    // the same, of those whose end is not known
  std::deque<std::uint64_t> ends_;    // last ids before the count began anew
  std::vector<IdRange> unexplained_;  // the first that will never be
  std::uint64_t named_ = 0;
};

}  // namespace tool
