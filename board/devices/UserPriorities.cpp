#include "devices/UserPriorities.h"

#include <errno.h>
#include <linux/videodev2.h>

#include <algorithm>

namespace board {

unsigned UserPriorities::Highest() const {
  const std::lock_guard lock(mutex_);
  unsigned highest = V4L2_PRIORITY_DEFAULT;
  for (const auto& [user, priority] : priorities_) highest = std::max(highest, priority);
  return highest;
}

int UserPriorities::Set(User user, unsigned priority) {
  if (priority < V4L2_PRIORITY_BACKGROUND || priority > V4L2_PRIORITY_RECORD) return -EINVAL;
  if (!MayChange(user)) return -EBUSY;
  const std::lock_guard lock(mutex_);
  priorities_[user] = priority;
  return 0;
}

bool UserPriorities::MayChange(User user) const {
  const std::lock_guard lock(mutex_);
  const auto own = priorities_.find(user);
  const unsigned mine = own == priorities_.end() ? unsigned{V4L2_PRIORITY_DEFAULT} : own->second;
  for (const auto& [other, priority] : priorities_) {
    if (other != user && priority > mine) return false;
  }
  return true;
}

void UserPriorities::Remove(User user) {
  const std::lock_guard lock(mutex_);
  priorities_.erase(user);
}

}  // namespace board
