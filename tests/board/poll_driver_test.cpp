// Waiting for a descriptor whose driver has no poll function. Such a descriptor is always ready.
#include <gmock/gmock.h>
#include <sys/epoll.h>
#include <sys/wait.h>

#include <atomic>

#include "PollFixture.h"
#include "VideoClient.h"

namespace board_test {
namespace {

using PollDriver = Poll;

constexpr short kAll = POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM;

short ReadyAtOnce(int fd) {
  pollfd set{fd, static_cast<short>(kAll | POLLPRI), 0};
  EXPECT_EQ(poll(&set, 1, kForever), 1);
  return set.revents;
}

TEST_F(PollDriver, ADriverWithoutItIsAlwaysReady) {
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  ASSERT_EQ(tessaline_board_set_poll("uio1", 0), 0);
  ASSERT_EQ(tessaline_board_set_poll("video1", 0), 0);
  const Descriptor late("/dev/uio1", O_RDWR);
  for (const int fd : {client.fd(), device_.Get(), late.Get()}) EXPECT_EQ(ReadyAtOnce(fd), kAll);

  // The driver's other calls still block.
  std::atomic<bool> blocked{true};
  std::thread dequeues([&] {
    EXPECT_TRUE(client.Dequeue().empty());
    EXPECT_FALSE(blocked);
  });
  std::thread reads([&] {
    std::uint32_t count = 0;
    EXPECT_EQ(read(device_.Get(), &count, sizeof count), 4);
    EXPECT_FALSE(blocked);
  });
  ReallyWait(milliseconds(50));
  blocked = false;
  Interrupt();
  EXPECT_EQ(client.StreamOff(), 0);
  dequeues.join();
  reads.join();
}

TEST_F(PollDriver, TheKernelFindsADriverWithoutItReadyToo) {
  ASSERT_EQ(tessaline_board_set_poll("uio1", 0), 0);
  const int set = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  ASSERT_EQ(epoll_ctl(set, EPOLL_CTL_ADD, device_.Get(), &event), 0);
  EXPECT_EQ(epoll_wait(set, &event, 1, 0), 1);
  Interrupt();
  TakeInterrupt();
  EXPECT_EQ(epoll_wait(set, &event, 1, 0), 1);
  close(set);
}

TEST_F(PollDriver, AWaitEndsWithADriverWithoutIt) {
  std::thread waiting([this] {
    pollfd set{device_.Get(), POLLIN, 0};
    EXPECT_EQ(poll(&set, 1, kForever), 1);
    EXPECT_EQ(set.revents, POLLIN);
  });
  ReallyWait(milliseconds(10));
  ASSERT_EQ(tessaline_board_set_poll("uio1", 0), 0);
  waiting.join();
}

TEST_F(PollDriver, ADriverCanHaveItAgain) {
  ASSERT_EQ(tessaline_board_set_poll("uio1", 0), 0);
  EXPECT_EQ(ReadyAtOnce(device_.Get()), kAll);
  ASSERT_EQ(tessaline_board_set_poll("uio1", 1), 0);
  pollfd set{device_.Get(), POLLIN, 0};
  EXPECT_EQ(poll(&set, 1, 20), 0);
  EXPECT_LT(Delay(Both(), Interrupt, [this] { TakeInterrupt(); }), kAtOnce);
}

TEST_F(PollDriver, OnlyDevicesHaveDrivers) {
  EXPECT_EQ(tessaline_board_set_poll("video7", 0), -1);
  EXPECT_EQ(tessaline_board_set_poll("i2c-0", 0), 0) << "that one is always ready anyway";
  tessaline_board_unplug();
  EXPECT_EQ(tessaline_board_set_poll("uio1", 0), -1);
}

// The test starts itself again, with a board from the environment.
TEST(PollFromTheEnvironment, ADriverCanBeWithoutIt) {
  if (getenv("TESSALINE_BOARD_FAULTS") != nullptr) {
    const Descriptor device("/dev/uio1", O_RDWR);
    EXPECT_EQ(ReadyAtOnce(device.Get()), kAll);
    const Descriptor other("/dev/uio0", O_RDWR);
    pollfd set{other.Get(), POLLIN, 0};
    EXPECT_EQ(poll(&set, 1, 0), 0);
    return;
  }
  const pid_t child = fork();
  if (child == 0) {
    setenv("TESSALINE_BOARD", "K3610", 1);
    setenv("TESSALINE_BOARD_FAULTS", "nopoll uio1", 1);
    execl("/proc/self/exe", "child", "--gtest_filter=PollFromTheEnvironment.*", nullptr);
    _exit(127);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace board_test
