#pragma once

#include <string>
#include <vector>

namespace python {

// One thing that the library said.
struct Line {
  // Of log.h, or kPrinted.
  int level;
  std::string where;  // "Devices/V4l2Fd.cpp:63"; empty for printed lines
  std::string text;   // without the newline
};

// The level of what the library prints on standard output: refusals, and how it is getting on.
inline constexpr int kPrinted = -1;

// While it exists, what the library prints and logs on this thread is kept here. Standard output
// does not get it. Without one, what C code prints goes to standard output, as ever.
class Listening {
 public:
  Listening();
  ~Listening();
  Listening(const Listening&) = delete;
  Listening& operator=(const Listening&) = delete;

  std::vector<Line> Lines();

  // Puts listening in place for the whole process. Once, before the first Listening. Lines that
  // threads of the library log go to the queue of happenings (Happenings.h).
  static void Prepare(int log_level);

 private:
  friend struct Hooks;
  void Print(const char* text, std::size_t bytes);

  Listening* const outer_;
  std::string printed_;  // the beginning of a line
  std::vector<Line> lines_;
};

}  // namespace python
