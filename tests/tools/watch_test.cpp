// The live view: lines where there is no terminal, a picture that follows the size of one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>

#include <cstring>
#include <string>

#include "ToolRun.h"

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// At the pace of a real board.
ToolRun Watch(const std::string& arguments) {
  return ToolRun("watch " + arguments + " --virtual K3610").With("TESSALINE_BOARD_PACE", "real");
}

TEST(Watch, WritesLinesWithoutATerminal) {
  const ToolResult result = Watch("--time 1 --interval 0.2").Run();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_GE(CountLines(result.out), 3);
  EXPECT_THAT(result.out, HasSubstr("missing 0"));
  EXPECT_THAT(result.out, Not(HasSubstr("\033")));
}

TEST(Watch, WritesAnObjectALine) {
  const ToolResult result = Watch("--time 0.6 --interval 0.2 --json").Run();
  std::istringstream lines(result.out);
  int count = 0;
  nlohmann::json last;
  for (std::string line; std::getline(lines, line); ++count) {
    last = nlohmann::json::parse(line, nullptr, false);
    ASSERT_TRUE(last.is_object()) << line;
  }
  EXPECT_GE(count, 2);
  EXPECT_GT(last["profiles"], 0);
  EXPECT_NEAR(last["processor_temperature"].get<double>(), 40, 1);
}

TEST(Watch, TellsWhenNothingComes) {
  const ToolResult result =
      Watch("--time 0.5").With("TESSALINE_BOARD_FAULTS", "call video1 VIDIOC_DQBUF EIO").Run();
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("no profiles came"));
}

// Runs it on a terminal, and presses a key there when there is a picture or a line of text.
ToolResult OnTerminalUntil(const ToolRun& run, const std::string& shown, char key) {
  ToolResult result;
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) run.Become();
  char chunk[4096];
  bool pressed = false;
  for (ssize_t got = 0; (got = read(terminal, chunk, sizeof chunk)) > 0;) {
    result.out.append(chunk, static_cast<std::size_t>(got));
    if (pressed || result.out.find(shown) == std::string::npos) continue;
    pressed = write(terminal, &key, 1) == 1;
  }
  int status = 0;
  waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  close(terminal);
  return result;
}

TEST(Watch, EndsAtQ) {
  const ToolResult result = OnTerminalUntil(Watch("").With("TERM", "xterm"), "q ends", 'q');
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("\033[?1049l"));
  EXPECT_THAT(result.out, HasSubstr("tessaline K3610, virtual board"));
}

// Six seconds are long: what is going on is said before the picture.
TEST(Watch, TellsThatTheDeviceIsBeingStarted) {
  const ToolResult result = OnTerminalUntil(Watch("").With("TERM", "xterm"), "q ends", 'q');
  EXPECT_LT(result.out.find("starting the K3610 ..."), result.out.find("\033[?1049h"));
}

TEST(Watch, DrawsNothingOnATerminalThatCannotMoveItsCursor) {
  const ToolResult result =
      OnTerminalUntil(Watch("--time 1 --interval 0.2").With("TERM", "dumb"), "never", 'q');
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("profiles"));
  EXPECT_THAT(result.out, Not(HasSubstr("\033")));
}

// What a terminal of a size got to see until `enough`; then it has another size, until
// `enough` again, then Ctrl-C is pressed.
class OnATerminal {
 public:
  template <typename Enough>
  OnATerminal(winsize first, winsize second, Enough enough) {
    child_ = forkpty(&terminal_, nullptr, nullptr, &first);
    if (child_ == 0) Watch("").Become();
    before_ = ReadUntil(enough);
    ioctl(terminal_, TIOCSWINSZ, &second);
    // What was on its way had the old size.
    ReadUntil([](const std::string& text) { return text.size() > 20'000; });
    after_ = ReadUntil(enough);
    [[maybe_unused]] const ssize_t pressed = write(terminal_, "\003", 1);
    end_ = ReadUntil([](const std::string&) { return false; });
    int status = 0;
    waitpid(child_, &status, 0);
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    close(terminal_);
  }

  const std::string& before() const { return before_; }
  const std::string& after() const { return after_; }
  const std::string& end() const { return end_; }
  int status() const { return status_; }

 private:
  template <typename Enough>
  std::string ReadUntil(Enough enough) {
    std::string text;
    char chunk[4096];
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!enough(text) && std::chrono::steady_clock::now() < end) {
      pollfd fd{terminal_, POLLIN, 0};
      poll(&fd, 1, 100);
      if (fd.revents == 0) continue;
      const ssize_t got = read(terminal_, chunk, sizeof chunk);
      if (got <= 0) break;
      text.append(chunk, static_cast<std::size_t>(got));
    }
    return text;
  }

  int terminal_ = -1;
  pid_t child_ = -1;
  std::string before_;
  std::string after_;
  std::string end_;
  int status_ = -1;
};

// Characters in the longest line of the last whole picture, and its lines.
std::pair<std::size_t, int> SizeOfPicture(const std::string& text) {
  const std::size_t end = text.rfind("\033[H");
  const std::size_t begin = text.rfind("\033[H", end - 1) + 3;
  std::string picture = text.substr(begin, end - begin);
  for (const char* code : {"\033[K", "\033[J", "\r"}) {
    for (std::size_t at = 0; (at = picture.find(code)) != std::string::npos;) {
      picture.erase(at, std::strlen(code));
    }
  }
  std::istringstream lines(picture);
  std::size_t longest = 0;
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const auto characters = std::count_if(line.begin(), line.end(), [](char c) {
      return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    });
    longest = std::max(longest, static_cast<std::size_t>(characters));
  }
  return {longest, count};
}

TEST(Watch, DrawsThePictureThatFitsTheTerminal) {
  const auto enough = [](const std::string& text) {
    const std::size_t last = text.rfind("\033[H");
    return last != std::string::npos && last > 10 && text.find("\033[H") != last &&
           text.find("\xE2\xA0") != std::string::npos;
  };
  const OnATerminal run({.ws_row = 30, .ws_col = 120, .ws_xpixel = 0, .ws_ypixel = 0},
                        {.ws_row = 16, .ws_col = 60, .ws_xpixel = 0, .ws_ypixel = 0}, enough);
  EXPECT_THAT(run.before(), HasSubstr("\033[?1049h"));
  EXPECT_THAT(run.before(), HasSubstr("tessaline K3610"));
  EXPECT_EQ(SizeOfPicture(run.before()), (std::pair<std::size_t, int>{120, 30}));
  EXPECT_EQ(SizeOfPicture(run.after()), (std::pair<std::size_t, int>{60, 16}));
  EXPECT_THAT(run.end(), HasSubstr("\033[?1049l"));  // the screen as it was
  EXPECT_EQ(run.status(), 0);
}

}  // namespace
}  // namespace tessaline_test
