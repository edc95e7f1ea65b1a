#include "FileTable.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "InheritedFiles.h"
#include "PrivateDescriptor.h"
#include "RealCalls.h"

namespace board {
namespace {

constinit std::array<std::atomic<bool>, kMaxDescriptors> is_ours{};
std::atomic<pid_t> owner{0};  // the process that owns the descriptors; 0 before the first board

struct Table {
  std::mutex mutex;
  std::map<int, Entry> entries;

  // Call both with the mutex held. Destroy the returned entry after unlocking, because a close may
  // have work to do.
  Entry Put(int fd, Entry entry) {
    is_ours[static_cast<std::size_t>(fd)] = true;
    return std::exchange(entries[fd], std::move(entry));
  }
  Entry Take(int fd) {
    const auto found = entries.find(fd);
    if (found == entries.end()) return {};
    is_ours[static_cast<std::size_t>(fd)] = false;
    Entry taken = std::move(found->second);
    entries.erase(found);
    return taken;
  }
};

Table& TheTable() {
  static Table* table = new Table;
  return *table;
}

int NewDescriptor(const Entry& entry, bool close_on_exec) {
  if (const PollSign* sign = entry.file->Sign()) return sign->Duplicate(close_on_exec);
  const int fd = real::Eventfd(MarkOf(entry.path, entry.file->Flags()),
                               EFD_NONBLOCK | (close_on_exec ? EFD_CLOEXEC : 0));  // always ready
  return fd < 0 ? -errno : fd;
}

// Enters a descriptor that the kernel has just returned.
int Enter(int fd, Entry entry) {
  if (fd >= kMaxDescriptors) {
    real::Close(fd);
    return -EMFILE;
  }
  Entry stale;
  Table& table = TheTable();
  const std::lock_guard lock(table.mutex);
  stale = table.Put(fd, std::move(entry));
  return fd;
}

}  // namespace

bool IsBoardDescriptor(int fd) {
  return fd >= 0 && fd < kMaxDescriptors && is_ours[static_cast<std::size_t>(fd)];
}

int Install(Entry entry, bool close_on_exec) {
  const int fd = NewDescriptor(entry, close_on_exec);
  return fd < 0 ? fd : Enter(fd, std::move(entry));
}

int Duplicate(int fd, int at_least, bool close_on_exec) {
  Entry entry = Lookup(fd);
  if (entry.file == nullptr) return -EBADF;
  const int duplicate = real::Fcntl(fd, close_on_exec ? F_DUPFD_CLOEXEC : F_DUPFD, at_least);
  return duplicate < 0 ? -errno : Enter(duplicate, std::move(entry));
}

int DuplicateOnto(int fd, int target, int flags) {
  if (target < 0 || target >= kMaxDescriptors) return -EBADF;
  if (IsPrivateDescriptor(target)) return -EBUSY;
  Entry before;
  Table& table = TheTable();
  const std::lock_guard lock(table.mutex);
  // The entry changes first. No thread may see the new file with the old entry, or an eventfd
  // without an entry.
  const auto found = table.entries.find(fd);
  const bool ours = found != table.entries.end();
  const bool was_ours = table.entries.contains(target);
  if (ours) before = table.Put(target, found->second);
  if (real::Dup3(fd, target, flags) < 0) {
    const int error = errno;
    if (ours) before = was_ours ? table.Put(target, std::move(before)) : table.Take(target);
    return -error;
  }
  if (!ours) before = table.Take(target);
  return target;
}

Entry Lookup(int fd) {
  Table& table = TheTable();
  const std::lock_guard lock(table.mutex);
  const auto found = table.entries.find(fd);
  return found == table.entries.end() ? Entry{} : found->second;
}

int Release(int fd) {
  Entry gone;
  Table& table = TheTable();
  const std::lock_guard lock(table.mutex);
  gone = table.Take(fd);
  if (gone.file == nullptr) return -EBADF;
  real::Close(fd);
  return 0;
}

int ReleaseRange(unsigned first, unsigned last) {
  std::vector<Entry> gone;
  Table& table = TheTable();
  const std::lock_guard lock(table.mutex);
  int result = 0;
  for (unsigned fd = first; fd <= last && fd < kMaxDescriptors; ++fd) {
    const int number = static_cast<int>(fd);
    if (IsBoardDescriptor(number)) gone.push_back(table.Take(number));
    if (!IsPrivateDescriptor(number)) continue;
    if (fd > first) result |= real::CloseRange(first, fd - 1, 0);
    first = fd + 1;
  }
  if (first <= last) result |= real::CloseRange(first, last, 0);
  return result < 0 ? -errno : 0;
}

void OwnDescriptors() { owner = getpid(); }

bool OwnsDescriptors() { return owner == getpid(); }

void RenewAfterFork() {
  OwnDescriptors();
  const Table& table = TheTable();
  for (const auto& [fd, entry] : table.entries) {
    if (PollSign* const sign = entry.file->Sign()) sign->Renew();
  }
  for (const auto& [fd, entry] : table.entries) {
    if (const PollSign* const sign = entry.file->Sign()) sign->RenewDescriptor(fd);
  }
}

}  // namespace board
