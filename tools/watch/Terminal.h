#pragma once

#include <string>

namespace tool {

// The user's terminal, if the output is one. Plain ANSI, no library.
class Terminal {
 public:
  explicit Terminal(int fd);
  // Restores the screen and shows the cursor again.
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  bool present() const { return present_; }
  // The current size; the terminal may be resized at any time.
  unsigned columns() const;
  unsigned rows() const;

  // Takes over the screen.
  void Enter();
  // Replaces the picture, without flicker.
  void Show(const std::string& picture);

 private:
  void Send(const std::string& text) const;

  int fd_;
  bool present_;
  bool entered_ = false;
};

}  // namespace tool
