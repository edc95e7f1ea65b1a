#include "record/storm/SimulatedDisk.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace storm {
namespace {

SimulatedDisk* disk = nullptr;

void WriteFile(const std::string& path, const std::vector<std::byte>& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

// Locks are not needed: there is one process. The sectors and their promise that a write spares its
// neighbours are those of SQLite's own files on Linux.
const sqlite3_io_methods SimulatedDisk::kMethods{
    .iVersion = 1,
    .xClose = [](sqlite3_file*) { return SQLITE_OK; },
    .xRead = Read,
    .xWrite = Write,
    .xTruncate = Truncate,
    .xSync = Sync,
    .xFileSize = FileSize,
    .xLock = [](sqlite3_file*, int) { return SQLITE_OK; },
    .xUnlock = [](sqlite3_file*, int) { return SQLITE_OK; },
    .xCheckReservedLock =
        [](sqlite3_file*, int* result) {
          *result = 0;
          return SQLITE_OK;
        },
    .xFileControl = [](sqlite3_file*, int, void*) { return SQLITE_NOTFOUND; },
    .xSectorSize = [](sqlite3_file*) { return 4096; },
    .xDeviceCharacteristics = [](sqlite3_file*) { return SQLITE_IOCAP_POWERSAFE_OVERWRITE; },
    .xShmMap = nullptr,
    .xShmLock = nullptr,
    .xShmBarrier = nullptr,
    .xShmUnmap = nullptr,
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

SimulatedDisk::SimulatedDisk() {
  disk = this;
  vfs_ = *sqlite3_vfs_find(nullptr);
  vfs_.iVersion = 2;
  vfs_.szOsFile = sizeof(Handle);
  vfs_.zName = "simulated";
  vfs_.pNext = nullptr;
  vfs_.xOpen = Open;
  vfs_.xDelete = Delete;
  vfs_.xAccess = Access;
  sqlite3_vfs_register(&vfs_, 1);
}

SimulatedDisk::~SimulatedDisk() {
  sqlite3_vfs_unregister(&vfs_);
  disk = nullptr;
}

bool SimulatedDisk::Count() {
  if (Dead()) return false;
  ++calls_;
  return true;
}

void SimulatedDisk::Apply(const Change& change, std::vector<std::byte>& bytes) {
  if (change.truncation) {
    bytes.resize(std::min(bytes.size(), change.offset));
    return;
  }
  bytes.resize(std::max(bytes.size(), change.offset + change.bytes.size()));
  std::ranges::copy(change.bytes, bytes.begin() + static_cast<std::ptrdiff_t>(change.offset));
}

int SimulatedDisk::Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags,
                        int* out_flags) {
  auto* handle = reinterpret_cast<Handle*>(file);
  handle->base.pMethods = nullptr;
  if (name == nullptr || !disk->Count()) return SQLITE_CANTOPEN;
  Content& content = disk->contents_[name];
  content.deleted = false;
  content.journal = (flags & SQLITE_OPEN_MAIN_JOURNAL) != 0;
  handle->content = &content;
  handle->base.pMethods = &kMethods;
  if (out_flags != nullptr) *out_flags = flags;
  return SQLITE_OK;
}

int SimulatedDisk::Delete(sqlite3_vfs*, const char* name, int sync_folder) {
  if (!disk->Count()) return SQLITE_IOERR_DELETE;
  const auto found = disk->contents_.find(name);
  if (found == disk->contents_.end() || found->second.deleted) return SQLITE_IOERR_DELETE_NOENT;
  found->second.deleted = true;
  if (sync_folder != 0) found->second.name_synced = false;
  return SQLITE_OK;
}

int SimulatedDisk::Access(sqlite3_vfs*, const char* name, int, int* result) {
  const auto found = disk->contents_.find(name);
  *result = found != disk->contents_.end() && !found->second.deleted;
  return disk->Dead() ? SQLITE_IOERR_ACCESS : SQLITE_OK;
}

int SimulatedDisk::Read(sqlite3_file* file, void* to, int size, sqlite3_int64 offset) {
  if (disk->Dead()) return SQLITE_IOERR_READ;
  const auto& bytes = reinterpret_cast<Handle*>(file)->content->now;
  const auto first = std::min(static_cast<std::size_t>(offset), bytes.size());
  const auto count = std::min(static_cast<std::size_t>(size), bytes.size() - first);
  auto* rest = std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(first), count,
                           static_cast<std::byte*>(to));
  std::fill_n(rest, static_cast<std::size_t>(size) - count, std::byte{0});
  return count == static_cast<std::size_t>(size) ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

int SimulatedDisk::Write(sqlite3_file* file, const void* from, int size, sqlite3_int64 offset) {
  if (!disk->Count()) return SQLITE_IOERR_WRITE;
  Content& content = *reinterpret_cast<Handle*>(file)->content;
  const auto* first = static_cast<const std::byte*>(from);
  Change change{.offset = static_cast<std::size_t>(offset), .bytes = {first, first + size}};
  if (disk->calls_ > disk->calls_until_full_ &&
      change.offset + change.bytes.size() > content.now.size()) {
    return SQLITE_FULL;
  }
  Apply(change, content.now);
  content.pending.push_back(std::move(change));
  return SQLITE_OK;
}

int SimulatedDisk::Truncate(sqlite3_file* file, sqlite3_int64 size) {
  if (!disk->Count()) return SQLITE_IOERR_TRUNCATE;
  Content& content = *reinterpret_cast<Handle*>(file)->content;
  content.pending.push_back(
      {.truncation = true, .offset = static_cast<std::size_t>(size), .bytes = {}});
  Apply(content.pending.back(), content.now);
  return SQLITE_OK;
}

int SimulatedDisk::Sync(sqlite3_file* file, int) {
  if (!disk->Count()) return SQLITE_IOERR_FSYNC;
  Content& content = *reinterpret_cast<Handle*>(file)->content;
  for (const Change& change : content.pending) Apply(change, content.synced);
  content.pending.clear();
  // SQLite's own files sync the folder with a new journal's first sync.
  if (!content.name_synced && content.journal) {
    for (auto& [path, other] : disk->contents_) other.name_synced = true;
  }
  return SQLITE_OK;
}

int SimulatedDisk::FileSize(sqlite3_file* file, sqlite3_int64* size) {
  *size = static_cast<sqlite3_int64>(reinterpret_cast<Handle*>(file)->content->now.size());
  return disk->Dead() ? SQLITE_IOERR_FSTAT : SQLITE_OK;
}

void SimulatedDisk::Save() const {
  for (const auto& [path, content] : contents_) {
    if (!content.deleted) WriteFile(path, content.now);
  }
}

void SimulatedDisk::SaveAfterCut(std::mt19937& random) const {
  const std::size_t sector = random() % 2 == 0 ? 512 : 4096;
  const unsigned percent = std::array{0u, 10u, 50u, 90u, 100u}[random() % 5];
  const auto survives = [&] { return random() % 100 < percent; };
  for (const auto& [path, content] : contents_) {
    // The folder may still have the name, or not yet.
    const bool there =
        content.name_synced ? !content.deleted || survives() : !content.deleted && survives();
    if (!there) continue;
    std::vector<std::byte> bytes = content.synced;
    // Where nothing was written, there is what was on the disk before.
    const auto grow = [&](std::size_t size) {
      if (bytes.size() < size) bytes.resize(size, static_cast<std::byte>(random()));
    };
    for (const Change& change : content.pending) {
      if (change.truncation) {
        if (survives()) Apply(change, bytes);
        continue;
      }
      const std::size_t end = change.offset + change.bytes.size();
      if (survives()) grow(end);
      for (std::size_t from = change.offset; from < end;) {
        const std::size_t to = std::min(end, (from / sector + 1) * sector);
        if (survives()) {
          grow(to);
          std::copy_n(change.bytes.begin() + static_cast<std::ptrdiff_t>(from - change.offset),
                      to - from, bytes.begin() + static_cast<std::ptrdiff_t>(from));
        }
        from = to;
      }
    }
    WriteFile(path, bytes);
  }
}

}  // namespace storm
