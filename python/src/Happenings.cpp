#include "Happenings.h"

#include <chrono>
#include <utility>

namespace python {

Happenings& Happenings::Instance() {
  // Never destroyed: threads of the library may still log while the process ends.
  static auto* const happenings = new Happenings;
  return *happenings;
}

void Happenings::Add(Happening happening) {
  {
    const std::lock_guard lock(mutex_);
    if (queue_.size() >= kMost) {
      ++dropped_;
      return;
    }
    queue_.push_back(std::move(happening));
  }
  added_.notify_one();
}

std::optional<Happening> Happenings::Take(int milliseconds) {
  std::unique_lock lock(mutex_);
  added_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                  [this] { return !queue_.empty(); });
  if (queue_.empty()) return std::nullopt;
  Happening first = std::move(queue_.front());
  queue_.pop_front();
  return first;
}

std::uint64_t Happenings::dropped() {
  const std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace python
