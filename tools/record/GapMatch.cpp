#include "record/GapMatch.h"

#include <algorithm>

namespace tool {
namespace {

// What remains of `ids` without others.
std::vector<IdRange> Without(const std::vector<IdRange>& ids, const IdRange& other) {
  std::vector<IdRange> left;
  for (const IdRange& part : ids) {
    if (other.last < part.first || other.first > part.last) {
      left.push_back(part);
      continue;
    }
    if (part.first < other.first) left.push_back({part.first, other.first - 1});
    if (part.last > other.last) left.push_back({other.last + 1, part.last});
  }
  return left;
}

std::uint64_t Count(const std::vector<IdRange>& ids) {
  std::uint64_t count = 0;
  for (const IdRange& part : ids) count += part.last - part.first + 1;
  return count;
}

// Takes out of `all` what it has in common with `ids`, the newest first. Returns what is left of
// `ids`.
std::vector<IdRange> TakeOut(std::deque<IdRange>& all, const IdRange& ids) {
  std::vector<IdRange> left{ids};
  for (std::size_t i = all.size(); i-- > 0 && !left.empty();) {
    const IdRange entry = all[i];
    const auto meets = [&](const IdRange& part) {
      return part.first <= entry.last && part.last >= entry.first;
    };
    if (std::none_of(left.begin(), left.end(), meets)) continue;
    std::vector<IdRange> rest{entry};
    for (const IdRange& part : left) rest = Without(rest, part);
    left = Without(left, entry);
    const auto at = all.erase(all.begin() + static_cast<std::ptrdiff_t>(i));
    all.insert(at, rest.begin(), rest.end());
  }
  return left;
}

template <typename List, typename Entry>
void Keep(List& list, const Entry& entry) {
  list.push_back(entry);
  if (list.size() > GapMatch::kMostWaiting) list.pop_front();
}

// The first entry that fits goes. False: there is none.
template <typename List, typename Fits>
bool Remove(List& list, Fits fits) {
  const auto found = std::find_if(list.begin(), list.end(), fits);
  if (found == list.end()) return false;
  list.erase(found);
  return true;
}

}  // namespace

void GapMatch::AddHole(IdRange hole) {
  const std::vector<IdRange> all{hole};
  std::vector<IdRange> left = TakeOut(waiting_, hole);
  const auto open = std::find_if(open_.begin(), open_.end(),
                                 [&](std::uint64_t first) { return hole.Has(first); });
  if (open != open_.end()) {
    left = Without(left, {*open, hole.last});
    open_.erase(open);
  }
  named_ += Count(all) - Count(left);
  for (const IdRange& part : left) KeepHole(part);
}

void GapMatch::KeepHole(IdRange hole) {
  if (holes_.size() >= kMostWaiting) {
    if (unexplained_.size() < kMostTold) unexplained_.push_back(holes_.front());
    holes_.pop_front();
  }
  holes_.push_back(hole);
}

void GapMatch::AddNamed(std::uint64_t first, std::optional<std::uint64_t> last) {
  if (!last) return AddOpen(first);
  if (*last < first) return;
  const std::vector<IdRange> left = TakeOut(holes_, {first, *last});
  named_ += Count({{first, *last}}) - Count(left);
  for (const IdRange& part : left) Keep(waiting_, part);
}

void GapMatch::AddOpen(std::uint64_t first) {
  const auto hole = std::find_if(holes_.rbegin(), holes_.rend(),
                                 [&](const IdRange& ids) { return ids.Has(first); });
  if (hole != holes_.rend()) {
    const IdRange explained{first, hole->last};
    TakeOut(holes_, explained);
    named_ += Count({explained});
    return;
  }
  // The count has begun anew there, so that no id is missing.
  if (Remove(ends_, [&](std::uint64_t end) { return end + 1 == first; })) return;
  Keep(open_, first);
}

// What was named and shows no hole by now was behind the last frame.
void GapMatch::AddRestart(std::uint64_t last) {
  waiting_.clear();
  if (!Remove(open_, [&](std::uint64_t first) { return first == last + 1; })) Keep(ends_, last);
  open_.clear();
}

std::vector<IdRange> GapMatch::FirstUnexplained() const {
  std::vector<IdRange> first = unexplained_;
  for (const IdRange& hole : holes_) {
    if (first.size() >= kMostTold) break;
    first.push_back(hole);
  }
  return first;
}

}  // namespace tool
