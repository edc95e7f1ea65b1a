#pragma once

#include <map>
#include <mutex>

namespace board {

// The rights of a device's users: who has a lower priority than another may change nothing.
class UserPriorities {
 public:
  using User = const void*;  // the open file
  unsigned Highest() const;
  int Set(User user, unsigned priority);  // 0 or the negative errno
  bool MayChange(User user) const;
  void Remove(User user);

 private:
  mutable std::mutex mutex_;
  std::map<User, unsigned> priorities_;  // other than the usual one
};

}  // namespace board
