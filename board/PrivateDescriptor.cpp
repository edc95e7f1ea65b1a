#include "PrivateDescriptor.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include "FileTable.h"
#include "RealCalls.h"

namespace board {
namespace {

// Numbers from here on cost no more than low ones.
constexpr int kOutOfTheWay = 32;

constinit std::array<std::atomic<bool>, kMaxDescriptors> is_private{};

int MoveOutOfTheWay(int fd) {
  const int moved = real::Fcntl(fd, F_DUPFD_CLOEXEC, kOutOfTheWay);
  if (moved < 0 || moved >= kMaxDescriptors) {
    if (moved >= 0) real::Close(moved);
    return fd;
  }
  real::Close(fd);
  return moved;
}

void Mark(int fd, bool value) {
  if (fd < kMaxDescriptors) is_private[static_cast<std::size_t>(fd)] = value;
}

}  // namespace

PrivateDescriptor::PrivateDescriptor(int fd) : fd_(fd < 0 ? fd : MoveOutOfTheWay(fd)) {
  if (fd_ >= 0) Mark(fd_, true);
}

PrivateDescriptor::~PrivateDescriptor() {
  if (fd_ < 0) return;
  Mark(fd_, false);
  real::Close(fd_);
}

PrivateDescriptor NewMemory(const char* name, std::size_t bytes) {
  PrivateDescriptor memory(memfd_create(name, MFD_CLOEXEC));
  if (ftruncate(memory.Get(), static_cast<off_t>(bytes)) != 0) return {};
  return memory;
}

bool IsPrivateDescriptor(int fd) {
  return fd >= 0 && fd < kMaxDescriptors && is_private[static_cast<std::size_t>(fd)];
}

}  // namespace board
