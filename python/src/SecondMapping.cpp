#include "SecondMapping.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

namespace python {

namespace {

namespace fs = std::filesystem;

// The library's own descriptor of a device: the same file, so the same access and the same caching.
int DescriptorOf(const std::string& path) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd", ignored)) {
    if (fs::read_symlink(entry.path(), ignored) == path) {
      return std::atoi(entry.path().filename().c_str());
    }
  }
  return -1;
}

}  // namespace

std::size_t PageSize() {
  static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

SecondMappings& SecondMappings::Instance() {
  // Never destroyed: a capture thread may still deliver while the process ends.
  static auto* const mappings = new SecondMappings;
  return *mappings;
}

std::optional<SecondMappings::Mapping> SecondMappings::LookUp(std::uintptr_t address) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    Mapping mapping;
    unsigned long begin = 0;
    unsigned long end = 0;
    unsigned long offset = 0;
    int path = 0;
    if (sscanf(line.c_str(), "%lx-%lx %*s %lx %*s %*s %n", &begin, &end, &offset, &path) < 3) {
      continue;
    }
    if (address < begin || address >= end) continue;
    mapping.begin = begin;
    mapping.end = end;
    mapping.offset = static_cast<long>(offset);
    mapping.path = line.substr(std::min<std::size_t>(static_cast<std::size_t>(path), line.size()));
    return mapping;
  }
  return std::nullopt;
}

const SecondMappings::Mapping* SecondMappings::MappingOf(std::uintptr_t address) {
  const auto around = [address](const Mapping& mapping) {
    return mapping.begin <= address && address < mapping.end;
  };
  auto found = std::ranges::find_if(mappings_, around);
  if (found == mappings_.end()) {
    auto mapping = LookUp(address);
    if (!mapping) return nullptr;
    found = mappings_.insert(mappings_.end(), std::move(*mapping));
  }
  return &*found;
}

void* SecondMappings::MapAgain(std::uintptr_t first, std::size_t bytes, const Mapping& mapping) {
  // An old size of 0 makes a second mapping of shared memory.
  void* again = mremap(reinterpret_cast<void*>(first), 0, bytes, MREMAP_MAYMOVE);
  if (again != MAP_FAILED) {
    if (mprotect(again, bytes, PROT_READ) == 0) return again;
    munmap(again, bytes);
  }
  // The kernel does not do so with memory of devices. Those can be mapped twice.
  const int fd = mapping.path.starts_with("/dev/") ? DescriptorOf(mapping.path) : -1;
  if (fd < 0) return MAP_FAILED;
  return mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd,
              mapping.offset + static_cast<long>(first - mapping.begin));
}

std::optional<SecondMappings::Place> SecondMappings::Lend(const void* data, std::size_t bytes) {
  const auto address = reinterpret_cast<std::uintptr_t>(data);
  const std::size_t offset = address % PageSize();
  const std::uintptr_t first = address - offset;
  const std::size_t needed = (offset + bytes + PageSize() - 1) / PageSize() * PageSize();
  const std::lock_guard lock(mutex_);
  const auto known = pages_.find(first);
  if (known != pages_.end()) {
    if (known->second.bytes >= needed) return Place{known->second, offset};
    munmap(known->second.begin, known->second.bytes);
    pages_.erase(known);
  }
  const Mapping* const mapping = MappingOf(first);
  if (mapping == nullptr) return std::nullopt;
  // Room for a fuller buffer next time.
  const std::size_t room = std::min(2 * needed, mapping->end - first);
  if (room < needed) return std::nullopt;
  void* const again = MapAgain(first, room, *mapping);
  if (again == MAP_FAILED) return std::nullopt;
  const Pages pages{static_cast<std::uint8_t*>(again), room};
  pages_.emplace(first, pages);
  return Place{pages, offset};
}

void SecondMappings::GiveAway(const Pages& pages) {
  const std::lock_guard lock(mutex_);
  std::erase_if(pages_, [&](const auto& known) { return known.second.begin == pages.begin; });
}

}  // namespace python
