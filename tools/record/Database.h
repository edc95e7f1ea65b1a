#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Failure.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tool {

// The system refused something. `error`: its errno.
class SystemFailure : public Failure {
 public:
  SystemFailure(ExitCode code, int error, const std::string& what, std::string next = {})
      : Failure(code, what, std::move(next)), error_(error) {}

  int error() const { return error_; }

 private:
  int error_;
};

// A part of the file cannot be read; others may.
class Damaged : public Failure {
 public:
  explicit Damaged(const Failure& failure) : Failure(failure) {}
};

// The file is none of SQLite.
class NoDatabase : public Failure {
 public:
  explicit NoDatabase(const Failure& failure) : Failure(failure) {}
};

// A file of SQLite. Every failure is a Failure that names the file and says what to do.
class Database {
 public:
  enum class Mode { kCreate, kContinue, kRead, kSalvage };

  // The largest message: an image of the largest sensor, with room to spare. A hostile file cannot
  // make us allocate more at once.
  static constexpr int kMostBytes = 64 << 20;
  // Of new files. In larger pages, messages waste more; smaller ones take more time.
  static constexpr int kPageBytes = 16 << 10;

  // kCreate: a new, empty file, which belongs to this process until it is closed; one that exists
  // is refused. It survives no interruption before KeepJournal(), and is removed with this object
  // unless KeepFile() was called. kRead: a file that may be
  // hostile: nothing in it is executed. What an interrupted writer left half done is taken back
  // first, which needs permission to write. kSalvage: the same, and a file whose end is missing is
  // read up to there. kContinue: a file to add to, hostile or empty, or a new one, in a transaction
  // that has begun. It belongs to this process until it is closed, and every transaction, the first
  // too, is taken back if it is interrupted.
  Database(std::string path, Mode mode);

  const std::string& path() const { return path_; }
  void Run(const std::string& sql);
  // Of a new file, outside of transactions: from the end of the next one on, an interruption takes
  // it back to the end of the last.
  void KeepJournal();
  // Of a new file: from now on, it has something that is not to be lost.
  void KeepFile() { handle_.get_deleter().remove.clear(); }

  // The number of the row that was inserted last.
  std::int64_t LastRow() const;

  // Throws Failure if `result` is one of an error; Damaged if it is this part of the file only.
  void Check(int result) const;
  sqlite3* handle() const { return handle_.get(); }

 private:
  void Open(bool writable);
  void Create();
  void Continue();
  // Makes a hostile file harmless.
  void Distrust(bool salvage);

  struct Close {
    std::string remove;  // path of a new file that is nothing yet
    void operator()(sqlite3* handle) const;
  };

  std::string path_;
  std::unique_ptr<sqlite3, Close> handle_;
};

// A statement of it, compiled once. Parameters and columns count from 0.
class Statement {
 public:
  Statement(const Database& database, std::string_view sql);

  void Bind(int parameter, std::int64_t value);
  void Bind(int parameter, std::string_view text);
  // Not copied: valid until Run() or the last Next().
  void Bind(int parameter, std::span<const std::byte> blob);

  // Runs a statement that has no rows.
  void Run();
  // Goes to the next row. False: there is none, and the statement starts anew.
  bool Next();
  // Starts anew; what is bound stays.
  void Reset();

  std::int64_t Number(int column) const;
  std::string Text(int column) const;
  // Valid until the next call of Next().
  std::span<const std::byte> Blob(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* handle) const;
  };

  const Database& database_;
  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

}  // namespace tool
