#include "FileTable.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/eventfd.h>

#include <array>
#include <atomic>
#include <map>
#include <mutex>

#include "RealCalls.h"

namespace board {
namespace {

constinit std::array<std::atomic<bool>, kMaxDescriptors> is_ours{};

struct Table {
  std::mutex mutex;
  std::map<int, Entry> entries;
};

Table& TheTable() {
  static Table* table = new Table;
  return *table;
}

int NewDescriptor(OpenFile& file, bool close_on_exec) {
  if (const PollSign* sign = file.Sign()) return sign->Duplicate(close_on_exec);
  const int fd = eventfd(1, EFD_NONBLOCK | (close_on_exec ? EFD_CLOEXEC : 0));  // always ready
  return fd < 0 ? -errno : fd;
}

}  // namespace

bool IsBoardDescriptor(int fd) {
  return fd >= 0 && fd < kMaxDescriptors && is_ours[static_cast<std::size_t>(fd)];
}

int Install(Entry entry, int open_flags) {
  const int fd = NewDescriptor(*entry.file, (open_flags & O_CLOEXEC) != 0);
  if (fd < 0) return fd;
  if (fd >= kMaxDescriptors) {
    real::Close(fd);
    return -EMFILE;
  }
  Table& table = TheTable();
  const std::lock_guard lock(table.mutex);
  table.entries[fd] = std::move(entry);
  is_ours[static_cast<std::size_t>(fd)] = true;
  return fd;
}

Entry Lookup(int fd) {
  Table& table = TheTable();
  const std::lock_guard lock(table.mutex);
  const auto found = table.entries.find(fd);
  return found == table.entries.end() ? Entry{} : found->second;
}

void Release(int fd) {
  Entry gone;  // destroyed after the lock is let go: a close may have work to do
  Table& table = TheTable();
  {
    const std::lock_guard lock(table.mutex);
    const auto found = table.entries.find(fd);
    if (found == table.entries.end()) return;
    gone = std::move(found->second);
    table.entries.erase(found);
    is_ours[static_cast<std::size_t>(fd)] = false;
    real::Close(fd);
  }
}

void RenewAfterFork() {
  const Table& table = TheTable();
  for (const auto& [fd, entry] : table.entries) {
    if (PollSign* const sign = entry.file->Sign()) sign->Renew();
  }
  for (const auto& [fd, entry] : table.entries) {
    if (const PollSign* const sign = entry.file->Sign()) sign->RenewDescriptor(fd);
  }
}

}  // namespace board
