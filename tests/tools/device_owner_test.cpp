// Who has a device: asked before it is started a second time.
#include "DeviceOwner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tessaline_test {
namespace {

using ::testing::HasSubstr;

// Nothing on an ordinary machine keeps this one open.
constexpr const char* kNode = "/dev/full";

// A process that has the node open, from the constructor on.
class Holder {
 public:
  Holder() {
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) return;
    process_ = fork();
    if (process_ == 0) {
      const int node = open(kNode, O_RDWR | O_CLOEXEC);
      if (write(ready[1], "x", node >= 0 ? 1 : 0) < 0) _exit(1);
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
  ASSERT_FALSE(tool::FindOwner(kNode)) << tool::FindOwner(kNode)->Name() << " disturbs this test";
  Holder holder;
  ASSERT_TRUE(holder.opened());
  const auto owner = tool::FindOwner(kNode);
  ASSERT_TRUE(owner);
  EXPECT_EQ(owner->process, holder.process());
  EXPECT_THAT(owner->Name(), HasSubstr(" (process " + std::to_string(holder.process()) + ")"));
  EXPECT_THAT(owner->Name(), HasSubstr("tools_device_ow"));
  holder.End();
  EXPECT_FALSE(tool::FindOwner(kNode));
}

TEST(DeviceOwner, IsNotThisProcess) {
  const int node = open(kNode, O_RDWR | O_CLOEXEC);
  ASSERT_GE(node, 0);
  EXPECT_FALSE(tool::FindOwner(kNode));
  close(node);
}

TEST(DeviceOwner, NobodyHasWhatIsNoDevice) {
  EXPECT_FALSE(tool::FindOwner("/dev/no_such_node"));
  EXPECT_FALSE(tool::FindOwner("/proc/self/exe"));
}

}  // namespace
}  // namespace tessaline_test
