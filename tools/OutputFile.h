#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// Whether a path means the standard output: "-", "/dev/stdout".
bool IsStandardOutput(const std::string& path);
// Whether what was written to it cannot be changed any more: standard output, a pipe.
bool IsStream(const std::string& path);

// Makes sure that a file may be created at the path. An existing one needs `force`, or a yes from
// the user, who is asked on a terminal. Throws a Failure if it must stay, or if it is already
// clear that no file can be created there.
bool MayOverwrite(const std::string& path, bool force);
// Removes regular files only: not /dev/full.
void RemoveFile(const std::string& path);

// A file being written, record by record. Whatever happens (a full disk, Ctrl-C), it only holds
// whole records.
class OutputFile {
 public:
  // Throws a Failure if the file cannot be created, exists and `force` is false (on a terminal
  // the user is asked first), or is being written by another process.
  OutputFile(std::string path, bool force);
  // Keeps what was flushed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& path() const { return path_; }

  void Append(std::span<const std::uint8_t> bytes);
  void Append(std::string_view text);
  template <typename Number>
  void AppendNumber(Number number) {
    Append({reinterpret_cast<const std::uint8_t*>(&number), sizeof number});
  }
  // Ends a record: what was appended since the last call belongs together. What comes before
  // the first call is the file's head, not a record.
  void EndRecord();

  // Writes everything out. Throws a Failure if the disk is full; the file then ends after the
  // last whole record.
  void Flush();
  // Replaces bytes that are already in the file.
  void Rewrite(off_t offset, std::span<const std::uint8_t> bytes);
  // Records that are in the file, not just pending.
  std::size_t records() const { return records_; }
  bool failed() const { return failed_; }

  // Removes the file: there is nothing useful in it.
  void Remove() { RemoveFile(path_); }

 private:
  void LockAndEmpty();

  std::string path_;
  int fd_ = -1;
  off_t size_ = 0;  // of the file
  std::vector<std::uint8_t> pending_;
  std::vector<std::size_t> ends_;  // of records in what is pending
  std::size_t records_ = 0;
  bool failed_ = false;
};

// A file that appears as a whole, at the end. Until then its place is reserved: a second process
// that wants it is refused.
class WholeFile {
 public:
  // Throws a Failure if another process is making this file, or it cannot be created.
  WholeFile(std::string path, bool force);
  // Leaves nothing behind that is not whole.
  ~WholeFile();
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  void Write(std::span<const std::uint8_t> bytes);

 private:
  const std::string path_;
  const bool force_;
  std::unique_ptr<OutputFile> part_;  // null for a stream or a device, which cannot be replaced
};

// A small file as a whole.
void WriteWholeFile(const std::string& path, bool force, std::span<const std::uint8_t> bytes);

}  // namespace tool
