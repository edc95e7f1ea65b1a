// Who has a device: asked before it is started a second time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "DeviceOwner.h"

namespace tessaline_test {
namespace {

// A device that nobody else knows: the end of a terminal of our own.
class Terminal {
 public:
  Terminal() : other_end_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (grantpt(other_end_) == 0 && unlockpt(other_end_) == 0) node_ = ptsname(other_end_);
  }
  ~Terminal() { close(other_end_); }
  const std::string& node() const { return node_; }

 private:
  const int other_end_;
  std::string node_;
};

// A process that has the node open, from the constructor on.
class Holder {
 public:
  explicit Holder(const std::string& node) {
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) return;
    process_ = fork();
    if (process_ == 0) {
      const int file = open(node.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
      if (write(ready[1], "x", file >= 0 ? 1 : 0) < 0) _exit(1);
      for (;;) pause();
    }
    char byte;
    close(ready[1]);
    opened_ = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
  }
  ~Holder() { End(); }
  void End() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
  }
  pid_t process() const { return process_; }
  bool opened() const { return opened_; }

 private:
  pid_t process_ = -1;
  bool opened_ = false;
};

TEST(DeviceOwner, IsNamed) {
  const Terminal terminal;
  ASSERT_FALSE(tool::FindOwner(terminal.node()));
  Holder holder(terminal.node());
  ASSERT_TRUE(holder.opened());
  const auto owner = tool::FindOwner(terminal.node());
  ASSERT_TRUE(owner);
  EXPECT_EQ(owner->process, holder.process());
  EXPECT_EQ(owner->Name(), "tools_device_ow (process " + std::to_string(holder.process()) + ")");
  holder.End();
  EXPECT_FALSE(tool::FindOwner(terminal.node()));
}

TEST(DeviceOwner, IsNotThisProcess) {
  const Terminal terminal;
  const int file = open(terminal.node().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  EXPECT_FALSE(tool::FindOwner(terminal.node()));
  close(file);
}

TEST(DeviceOwner, NobodyHasWhatIsNoDevice) {
  EXPECT_FALSE(tool::FindOwner("/dev/no_such_node"));
  EXPECT_FALSE(tool::FindOwner("/proc/self/exe"));
}

}  // namespace
}  // namespace tessaline_test
