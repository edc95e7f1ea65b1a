#include "memory/BoardMemory.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "RealCalls.h"

namespace board {
namespace {

constexpr std::size_t kBytes = 512 * 1024;

std::byte* Map(int file) {
  const int flags = file < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
  void* const memory = real::Mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, flags, file, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<std::byte*>(memory);
}

PrivateDescriptor OpenAgain(const PrivateDescriptor& file) {
  const std::string path = "/proc/self/fd/" + std::to_string(file.Get());
  return PrivateDescriptor(real::Open(AT_FDCWD, path.c_str(), O_RDWR | O_CLOEXEC, 0));
}

}  // namespace

struct BoardMemory::Header {
  char model[64];
  std::size_t used;  // by the parts; 0: they do not all have their places yet
};

BoardMemory::BoardMemory(PrivateDescriptor file, std::byte* memory)
    : file_(std::move(file)), memory_(memory), pages_(kBytes) {
  used_ = sizeof(Header);
}

BoardMemory::~BoardMemory() {
  // The clock of a shared board goes on there.
  if (!IsShared()) real::Munmap(memory_, kBytes);
  for (const auto& [memory, bytes] : kept_) real::Munmap(memory, bytes);
}

BoardMemory::Header& BoardMemory::Head() const { return *reinterpret_cast<Header*>(memory_); }

std::unique_ptr<BoardMemory> BoardMemory::Own() {
  std::byte* const memory = Map(-1);
  if (memory == nullptr) std::abort();  // the board cannot continue without memory
  return std::unique_ptr<BoardMemory>(new BoardMemory({}, memory));
}

std::unique_ptr<BoardMemory> BoardMemory::Join(const std::string& path, const std::string& model) {
  PrivateDescriptor file(real::Open(AT_FDCWD, path.c_str(), O_RDWR | O_CLOEXEC, 0));
  struct stat status {};
  // The kernel opens the lock if this process ends before the board is complete.
  if (file.Get() < 0 || flock(file.Get(), LOCK_EX) != 0 ||
      real::Fstatat(file.Get(), "", &status, AT_EMPTY_PATH) != 0 ||
      (status.st_size == 0 && ftruncate(file.Get(), kBytes) != 0)) {
    return nullptr;
  }
  const bool usable = status.st_size == 0 || status.st_size >= static_cast<off_t>(kBytes);
  errno = EINVAL;
  std::byte* const memory = usable ? Map(file.Get()) : nullptr;
  if (memory == nullptr) return nullptr;
  std::unique_ptr<BoardMemory> joined(new BoardMemory(std::move(file), memory));
  joined->lock_file_ = OpenAgain(joined->file_);
  Header& head = joined->Head();
  const std::string_view name = std::string_view(model).substr(0, sizeof head.model - 1);
  joined->first_ = head.used == 0;
  if (joined->first_) {
    std::fill_n(memory, kBytes, std::byte{});
    name.copy(head.model, name.size());
  } else if (head.model != name) {
    errno = 0;
    return nullptr;
  }
  return joined;
}

void BoardMemory::Complete() {
  if (!IsShared()) return;
  if (first_) Head().used = used_;
  if (Head().used != used_) wrong_ = "another version of the virtual board made the shared one";
  flock(file_.Get(), LOCK_UN);
}

void BoardMemory::Renew() {
  if (!IsShared()) return;
  const PrivateDescriptor renewed = OpenAgain(file_);
  // The same number, which the seats know.
  if (renewed.Get() >= 0) real::Dup3(renewed.Get(), lock_file_.Get(), O_CLOEXEC);
}

void* BoardMemory::Next(std::size_t bytes, std::size_t alignment) {
  const std::size_t place = (used_ + alignment - 1) / alignment * alignment;
  used_ = place + bytes;
  if (used_ > kBytes) std::abort();
  return memory_ + place;
}

// The value in its file, or where it is already if there is no file.
void* BoardMemory::InFolder(const std::string& name, void* place, std::size_t bytes) {
  if (folder_.empty()) return place;
  const std::string path = folder_ + '/' + name;
  errno = 0;
  void* const memory = MapFile(path, place, bytes);
  if (memory != nullptr) return kept_.emplace_back(memory, bytes).first;
  if (wrong_.empty()) wrong_ = fmt::format("{}: {}", path, strerror(errno));
  return place;
}

void* BoardMemory::MapFile(const std::string& path, const void* fresh, std::size_t bytes) {
  const PrivateDescriptor file(
      real::Open(AT_FDCWD, path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
  const auto size = static_cast<off_t>(bytes);
  struct stat status {};
  if (file.Get() < 0 || real::Fstatat(file.Get(), "", &status, AT_EMPTY_PATH) != 0) return nullptr;
  if (status.st_size != 0 && status.st_size != size) {
    wrong_ = fmt::format("{} has {} bytes, the chip has {}", path, status.st_size, bytes);
    return nullptr;
  }
  if (status.st_size == 0 && real::Write(file.Get(), fresh, bytes) != size) return nullptr;
  void* const memory =
      real::Mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
  return memory == MAP_FAILED ? nullptr : memory;
}

BoardMemory::Pages BoardMemory::NewPages(const char* name, std::size_t bytes) {
  if (!IsShared()) {
    own_pages_.push_back(NewMemory(name, bytes));
    return {own_pages_.back().Get(), 0};
  }
  const off_t start = pages_;
  pages_ += static_cast<off_t>(bytes);
  if (first_ && ftruncate(file_.Get(), pages_) != 0) return {-1, 0};
  return {file_.Get(), start};
}

}  // namespace board
