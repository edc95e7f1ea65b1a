#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// Whether to overwrite what is at the path: with `force`, or when the user says so, who is
// asked on a terminal. A Failure when it has to stay, or when no file can be made there for
// a reason that is plain beforehand.
bool MayOverwrite(const std::string& path, bool force);
// Files only: what is written to /dev/full is not taken away.
void RemoveFile(const std::string& path);

// A file being written, record by record. Whatever happens - a full disk, Ctrl-C - it
// holds whole records only.
class OutputFile {
 public:
  // A Failure when it exists and `force` is false (on a terminal the user is asked first),
  // or cannot be created.
  OutputFile(std::string path, bool force);
  // Leaves what was flushed.
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
  // What was appended since the last one belongs together. What comes before the first
  // is the file's head, and no record.
  void EndRecord();

  // Writes everything out. A Failure when the disk is full: the file then ends behind the
  // last whole record.
  void Flush();
  // Replaces bytes that are in the file already.
  void Rewrite(off_t offset, std::span<const std::uint8_t> bytes);
  // Records in the file, not only on their way.
  std::size_t records() const { return records_; }
  bool failed() const { return failed_; }

  // Takes the file away again: there is nothing of use in it.
  void Remove() { RemoveFile(path_); }

 private:
  std::string path_;
  int fd_ = -1;
  off_t size_ = 0;  // of the file
  std::vector<std::uint8_t> pending_;
  std::vector<std::size_t> ends_;  // of records in what is pending
  std::size_t records_ = 0;
  bool failed_ = false;
};

// A small file as a whole: up to a megabyte when read.
void WriteWholeFile(const std::string& path, bool force, std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> ReadWholeFile(const std::string& path);

}  // namespace tool
