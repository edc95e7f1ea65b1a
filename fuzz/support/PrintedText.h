#pragma once

#include <stdio.h>

#include <array>
#include <string_view>

namespace tessaline_fuzz {

// Keeps in memory what the code under test writes to the standard streams.
class PrintedText {
 public:
  PrintedText() {
    setvbuf(stream_, nullptr, _IONBF, 0);  // a buffer would be allocated during the run
    stdout = stderr = stream_;
  }
  ~PrintedText() {
    Restore();
    fclose(stream_);
  }
  PrintedText(const PrintedText&) = delete;
  PrintedText& operator=(const PrintedText&) = delete;

  // Restores the process's own streams.
  void Restore() {
    stdout = output_;
    stderr = error_;
  }
  std::string_view Text() const { return text_.data(); }

 private:
  std::array<char, 1 << 16> text_{};
  FILE* const stream_ = fmemopen(text_.data(), text_.size(), "w");
  FILE* const output_ = stdout;
  FILE* const error_ = stderr;
};

}  // namespace tessaline_fuzz
