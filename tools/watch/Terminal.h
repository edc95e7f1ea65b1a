#pragma once

#include <string>

namespace tool {

// Whether the descriptor is a terminal on which the cursor can be moved: not with TERM=dumb.
bool IsScreen(int fd);

// The user's terminal, if the output is one. Plain ANSI, no library. There is one at a time.
class Terminal {
 public:
  explicit Terminal(int fd);
  // Restores screen and keyboard.
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  bool present() const { return present_; }
  // The current size; the terminal may be resized at any time.
  unsigned columns() const;
  unsigned rows() const;

  // Takes over the screen, and the keyboard if it is this terminal's. While the process is stopped
  // (Ctrl-Z), both are the shell's.
  void Enter();
  // Replaces the picture, without flicker.
  void Show(const std::string& picture);
  // Whether "q" was pressed since the last call.
  bool WantsToQuit() const;

 private:
  int fd_;
  bool present_;
  bool entered_ = false;
};

}  // namespace tool
