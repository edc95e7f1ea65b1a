#include "record/Database.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "Failure.h"

namespace tool {
namespace {

constexpr int kCacheKb = 512;
constexpr int kWaitForReadersMs = 2000;

struct Explanation {
  int result;  // of any detail, or a detailed one
  ExitCode code;
  std::string_view what;  // behind the path
  std::string_view next;
};

constexpr std::string_view kInterrupted =
    "its writer was interrupted, and nobody may write here to tidy up";
constexpr std::string_view kCopyBoth =
    "copy the file, and the one with \"-journal\" behind its name, to another folder";

constexpr std::array kExplanations{
    Explanation{SQLITE_BUSY, ExitCode::kExists, "another program is writing it",
                "wait until it has ended"},
    Explanation{SQLITE_LOCKED, ExitCode::kExists, "another program is writing it",
                "wait until it has ended"},
    Explanation{SQLITE_NOTADB, ExitCode::kFile, "this is no recording", ""},
    Explanation{SQLITE_CORRUPT, ExitCode::kFile, "it is damaged",
                "\"tessaline bag check\" says what is whole"},
    Explanation{SQLITE_READONLY, ExitCode::kFile, kInterrupted, kCopyBoth},
    Explanation{SQLITE_IOERR_DELETE, ExitCode::kFile, kInterrupted, kCopyBoth},
    Explanation{SQLITE_TOOBIG, ExitCode::kFile, "it has a message of more than 64 MiB", ""},
};

// SQLite's calls do not create a file that must not exist yet. False: there is such a file.
bool CreateNew(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (descriptor >= 0) {
    close(descriptor);
    return true;
  }
  if (errno == EEXIST) return false;
  const int error = errno;
  throw SystemFailure(ExitCode::kFile, error,
                      fmt::format("cannot create {}: {}", path, strerror(error)));
}

bool MayWrite(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

// What is more than the cache holds goes to the file at once, while it is still in the processor's
// cache, and not all at the next sync.
std::string WritingPragmas() {
  return fmt::format(
      "PRAGMA page_size = {}; PRAGMA cache_size = -{}; PRAGMA locking_mode = EXCLUSIVE;"
      "PRAGMA synchronous = FULL;",
      Database::kPageBytes, kCacheKb);
}

// What another row may not have.
[[noreturn]] void Throw(int kind, const Failure& failure) {
  if (kind == SQLITE_CORRUPT || kind == SQLITE_IOERR || kind == SQLITE_TOOBIG) {
    throw Damaged(failure);
  }
  if (kind == SQLITE_NOTADB) throw NoDatabase(failure);
  throw failure;
}

// Without opening it: closing a descriptor would end the locks that a writer in this process has,
// and opening a pipe would wait for ever.
void RequireReadable(const std::string& path) {
  struct stat about {};
  int error = 0;
  if (stat(path.c_str(), &about) != 0 || faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) {
    error = errno;
  } else if (S_ISDIR(about.st_mode)) {
    error = EISDIR;
  } else if (!S_ISREG(about.st_mode)) {
    throw Failure(ExitCode::kFile, fmt::format("{}: this is no recording, and no file", path));
  }
  if (error == 0) return;
  throw SystemFailure(ExitCode::kFile, error,
                      fmt::format("cannot read {}: {}", path, strerror(error)));
}

}  // namespace

void Database::Close::operator()(sqlite3* handle) const {
  sqlite3_close_v2(handle);
  if (remove.empty()) return;
  // The file first: without its journal, half of it would remain.
  unlink(remove.c_str());
  unlink((remove + "-journal").c_str());
}

Database::Database(std::string path, Mode mode) : path_(std::move(path)) {
  if (mode == Mode::kCreate) {
    Create();
  } else if (mode == Mode::kContinue) {
    Continue();
  } else {
    RequireReadable(path_);
    Open(MayWrite(path_));
    Distrust(mode == Mode::kSalvage);
    Run("PRAGMA query_only = ON");
  }
}

void Database::Open(bool writable) {
  sqlite3* handle = nullptr;
  const int result = sqlite3_open_v2(path_.c_str(), &handle,
                                     (writable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) |
                                         SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE,
                                     nullptr);
  handle_.reset(handle);
  Check(result);
  sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, kMostBytes);
}

void Database::Create() {
  if (!CreateNew(path_)) {
    throw SystemFailure(ExitCode::kExists, EEXIST, fmt::format("{} already exists", path_),
                        "a recording is never overwritten; choose another name");
  }
  handle_.get_deleter().remove = path_;
  Open(MayWrite(path_));
  // With a journal in a file, SQLite would need a temporary one in another folder to make tables.
  Run(WritingPragmas() + "PRAGMA journal_mode = MEMORY");
}

void Database::Continue() {
  if (!CreateNew(path_)) RequireReadable(path_);
  if (!MayWrite(path_)) {
    throw SystemFailure(ExitCode::kFile, errno,
                        fmt::format("cannot write {}: {}", path_, strerror(errno)));
  }
  Open(true);
  Distrust(false);
  sqlite3_busy_timeout(handle(), kWaitForReadersMs);
  Run(WritingPragmas());
  if ((sqlite3_exec(handle(), "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) & 0xFF) ==
      SQLITE_BUSY) {
    throw Failure(ExitCode::kExists, fmt::format("{}: another program writes or reads it", path_),
                  "wait until it has ended");
  }
  Check(sqlite3_extended_errcode(handle()));
}

// SQLite refuses a file with a missing end, unless one that would repair it is asking.
void Database::Distrust(bool salvage) {
  sqlite3* const file = handle();
  Check(sqlite3_db_config(file, SQLITE_DBCONFIG_DEFENSIVE, salvage ? 0 : 1, nullptr));
  Check(sqlite3_db_config(file, SQLITE_DBCONFIG_WRITABLE_SCHEMA, salvage ? 1 : 0, nullptr));
  Check(sqlite3_db_config(file, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr));
  Check(sqlite3_db_config(file, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr));
  Check(sqlite3_db_config(file, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr));
  Run("PRAGMA cell_size_check = ON; PRAGMA mmap_size = 0");
}

void Database::Run(const std::string& sql) {
  Check(sqlite3_exec(handle(), sql.c_str(), nullptr, nullptr, nullptr));
}

// The rollback journal, and not the write-ahead log: frames go to the file once, and between two
// runs the file stands by itself. With the first journal, SQLite syncs the folder, too.
void Database::KeepJournal() { Run("PRAGMA journal_mode = TRUNCATE"); }

std::int64_t Database::LastRow() const { return sqlite3_last_insert_rowid(handle()); }

void Database::Check(int result) const {
  const int kind = result & 0xFF;
  if (kind == SQLITE_OK || kind == SQLITE_ROW || kind == SQLITE_DONE) return;
  if (kind == SQLITE_FULL) {
    throw SystemFailure(ExitCode::kFile, ENOSPC, fmt::format("{}: the disk is full", path_),
                        "what was synced before is kept");
  }
  for (const Explanation& explanation : kExplanations) {
    if (explanation.result != kind && explanation.result != result) continue;
    Throw(kind, Failure(explanation.code, fmt::format("{}: {}", path_, explanation.what),
                        std::string(explanation.next)));
  }
  if (const int error = handle_ ? sqlite3_system_errno(handle()) : 0;
      kind == SQLITE_IOERR && error != 0) {
    throw SystemFailure(ExitCode::kFile, error, fmt::format("{}: {}", path_, strerror(error)));
  }
  const char* text = handle_ ? sqlite3_errmsg(handle()) : sqlite3_errstr(result);
  Throw(kind, Failure(ExitCode::kFile, fmt::format("{}: {}", path_, text)));
}

void Statement::Finalize::operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }

Statement::Statement(const Database& database, std::string_view sql) : database_(database) {
  sqlite3_stmt* handle = nullptr;
  const int result = sqlite3_prepare_v3(database.handle(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &handle, nullptr);
  handle_.reset(handle);
  database.Check(result);
}

void Statement::Bind(int parameter, std::int64_t value) {
  database_.Check(sqlite3_bind_int64(handle_.get(), parameter + 1, value));
}

void Statement::Bind(int parameter, std::string_view text) {
  database_.Check(sqlite3_bind_text(handle_.get(), parameter + 1, text.data(),
                                    static_cast<int>(text.size()), SQLITE_TRANSIENT));
}

void Statement::Bind(int parameter, std::span<const std::byte> blob) {
  database_.Check(
      sqlite3_bind_blob64(handle_.get(), parameter + 1, blob.data(), blob.size(), SQLITE_STATIC));
}

void Statement::Run() {
  while (Next()) {
  }
}

bool Statement::Next() {
  const int result = sqlite3_step(handle_.get());
  if ((result & 0xFF) == SQLITE_ROW) return true;
  sqlite3_reset(handle_.get());
  database_.Check(result);
  return false;
}

void Statement::Reset() { sqlite3_reset(handle_.get()); }

std::int64_t Statement::Number(int column) const {
  return sqlite3_column_int64(handle_.get(), column);
}

std::string Statement::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(handle_.get(), column));
  const int bytes = sqlite3_column_bytes(handle_.get(), column);
  return text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(bytes));
}

std::span<const std::byte> Statement::Blob(int column) const {
  const auto* data = static_cast<const std::byte*>(sqlite3_column_blob(handle_.get(), column));
  const int bytes = sqlite3_column_bytes(handle_.get(), column);
  return {data, data == nullptr ? 0 : static_cast<std::size_t>(bytes)};
}

}  // namespace tool
