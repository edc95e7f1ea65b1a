#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "tessaline/board.h"
#include "tessaline/register_map.h"

namespace board_test {

// A descriptor that closes itself.
class Descriptor {
 public:
  Descriptor() = default;
  Descriptor(const char* path, int flags) : fd_(::open(path, flags)) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { Close(); }

  void Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }

 private:
  int fd_ = -1;
};

// -errno of a failed call, or the result of a successful one.
template <typename Result>
long Outcome(Result result) {
  return result < 0 ? -static_cast<long>(errno) : static_cast<long>(result);
}

inline long OpenOutcome(const std::string& path, int flags) {
  errno = 0;
  const Descriptor file(path.c_str(), flags);
  return file.IsOpen() ? 0 : -errno;
}

// Writes the whole text in one write to a freshly opened file, like echo in a shell.
inline long WriteFile(const std::string& path, std::string_view text, int flags = O_WRONLY) {
  const Descriptor file(path.c_str(), flags);
  if (!file.IsOpen()) return -errno;
  return Outcome(::write(file.Get(), text.data(), text.size()));
}

// The whole text of a file, or its errno name in angle brackets.
inline std::string ReadFile(const std::string& path) {
  const Descriptor file(path.c_str(), O_RDONLY);
  if (!file.IsOpen()) return std::string("<") + strerrorname_np(errno) + ">";
  std::string text;
  char buffer[64];
  for (;;) {
    const ssize_t count = ::read(file.Get(), buffer, sizeof(buffer));
    if (count < 0) return std::string("<") + strerrorname_np(errno) + ">";
    if (count == 0) return text;
    text.append(buffer, static_cast<std::size_t>(count));
  }
}

inline std::string Transcript() {
  char* text = tessaline_board_transcript(TESSALINE_BOARD_TEXT);
  std::string copy(text);
  std::free(text);
  return copy;
}

// Plugs in a board for one test.
class BoardTest : public testing::Test {
 protected:
  void SetUp() override { Select("K3610"); }
  void TearDown() override {
    tessaline_board_unplug();
    tessaline_board_set_sleep_factor(1);
  }

  static void Select(const char* model) {
    ASSERT_EQ(tessaline_board_select(model), 0);
    tessaline_board_set_sleep_factor(0);
    tessaline_board_transcript_clear();
  }

  // Advances the board's time without waiting for it.
  static void Pass(unsigned milliseconds) { ::usleep(milliseconds * 1000); }

  static void SetRegister(const VeltranoSDK::fpga::Register& reg, std::uint32_t value) {
    tessaline_board_register_set(static_cast<unsigned>(reg.block), reg.offset, value);
  }
};

}  // namespace board_test
