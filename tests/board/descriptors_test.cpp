// What a program can do with descriptors of any kind.
#include <gmock/gmock.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <array>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "BoardFixture.h"
#include "VideoClient.h"

namespace board_test {
namespace {

constexpr int kHigh = 77;  // an unused number

class Descriptors : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    SetRegister(VeltranoSDK::fpga::kReg.IRQ_CTRL, 5);  // both interrupts enabled
    device_ = open("/dev/uio1", O_RDWR | O_NONBLOCK);
    ASSERT_GE(device_, 0);
  }
  void TearDown() override {
    close(device_);
    EXPECT_EQ(OpenFiles(), 0);
    BoardTest::TearDown();
  }

  static int OpenFiles() { return tessaline_board_open_files("uio1"); }

  // Returns the number of interrupts so far, or -errno.
  static long Count(int fd) {
    std::uint32_t count = 0;
    const long result = Outcome(read(fd, &count, sizeof count));
    return result == sizeof count ? static_cast<long>(count) : result;
  }

  // Whether it is an ordinary descriptor of the kernel. Closes it.
  static bool IsOrdinary(int fd) {
    std::uint64_t value = 5;
    const bool written = write(fd, &value, sizeof value) == sizeof value;
    const bool ordinary = written && read(fd, &value, sizeof value) == sizeof value && value == 5;
    return close(fd) == 0 && ordinary;
  }
  // Whether the number is free, and becomes an ordinary descriptor when it is used again.
  static bool IsFree(int fd) {
    if (fcntl(fd, F_GETFD) != -1) return false;
    const int other = eventfd(0, EFD_NONBLOCK);
    if (other != fd) {
      dup2(other, fd);
      close(other);
    }
    return IsOrdinary(fd);
  }

  int device_ = -1;
};

// --- Duplicates ------------------------------------------------------------------------------

TEST_F(Descriptors, DuplicatesAreTheSameOpenFile) {
  const std::vector<int> duplicates{
      dup(device_), dup2(device_, kHigh), dup3(device_, kHigh + 1, O_CLOEXEC),
      fcntl(device_, F_DUPFD, kHigh), fcntl(device_, F_DUPFD_CLOEXEC, 3)};
  EXPECT_EQ(duplicates[1], kHigh);
  EXPECT_EQ(duplicates[2], kHigh + 1);
  EXPECT_EQ(duplicates[3], kHigh + 2);
  EXPECT_EQ(OpenFiles(), 1);
  long interrupts = 0;
  for (const int fd : duplicates) {
    EXPECT_EQ(Count(fd), -EAGAIN);
    tessaline_board_da_arrived();
    pollfd set{fd, POLLIN, 0};
    EXPECT_EQ(poll(&set, 1, 20'000), 1);
    EXPECT_EQ(Count(fd), ++interrupts);
    EXPECT_EQ(Count(device_), -EAGAIN) << "was taken";
    const std::int32_t enable = 1;
    EXPECT_EQ(write(fd, &enable, sizeof enable), 4);
    EXPECT_EQ(OpenFiles(), 1);
    EXPECT_EQ(close(fd), 0);
    EXPECT_TRUE(IsFree(fd));
  }
}

TEST_F(Descriptors, TheLastOneClosesTheDevice) {
  const int first = open("/dev/watchdog", O_RDWR);
  const int second = dup(first);
  const int third = dup(second);
  EXPECT_EQ(write(first, "V", 1), 1);
  EXPECT_EQ(close(first), 0);
  EXPECT_EQ(close(third), 0);
  EXPECT_EQ(OpenOutcome("/dev/watchdog", O_RDWR), -EBUSY);
  tessaline_board_transcript_clear();
  EXPECT_EQ(close(second), 0);
  EXPECT_EQ(Transcript(), "watchdog close, stopped\n");
}

TEST_F(Descriptors, OntoABoardsDescriptorAreItsEnd) {
  const int target = open("/dev/uio1", O_RDWR | O_NONBLOCK);
  const int temperature = open("/dev/i2c-0", O_RDWR);
  EXPECT_EQ(OpenFiles(), 2);
  EXPECT_EQ(dup2(temperature, target), target);
  EXPECT_EQ(OpenFiles(), 1);
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 1);
  EXPECT_EQ(close(temperature), 0);
  EXPECT_EQ(ioctl(target, 0x0707 /* I2C_RDWR */, nullptr), -1);
  EXPECT_EQ(errno, EFAULT);

  EXPECT_EQ(dup2(device_, target), target);
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 0);
  const int ordinary = eventfd(0, EFD_NONBLOCK);
  EXPECT_EQ(dup3(ordinary, target, 0), target);
  EXPECT_TRUE(IsOrdinary(target));
  EXPECT_EQ(dup2(device_, ordinary), ordinary);
  EXPECT_EQ(Count(ordinary), -EAGAIN);
  EXPECT_EQ(close(ordinary), 0);
  EXPECT_EQ(OpenFiles(), 1);
}

TEST_F(Descriptors, AreNotMadeOfNothing) {
  EXPECT_EQ(dup2(device_, device_), device_);
  EXPECT_EQ(Outcome(dup3(device_, device_, 0)), -EINVAL);
  EXPECT_EQ(Outcome(dup2(kHigh, device_)), -EBADF);
  EXPECT_EQ(Outcome(dup3(device_, device_ + 1, O_APPEND)), -EINVAL);
  EXPECT_EQ(Outcome(dup2(device_, -1)), -EBADF);
  EXPECT_EQ(Outcome(dup2(device_, 1'000'000)), -EBADF);
  EXPECT_EQ(Outcome(fcntl(device_, F_DUPFD, 1'000'000)), -EINVAL);
  EXPECT_EQ(Count(device_), -EAGAIN) << "it is what it was";
  EXPECT_TRUE(IsFree(device_ + 1));
  EXPECT_EQ(OpenFiles(), 1);
}

// --- Flags -----------------------------------------------------------------------------------

TEST_F(Descriptors, FlagsAreThoseOfTheOpening) {
  EXPECT_EQ(fcntl(device_, F_GETFL), O_RDWR | O_NONBLOCK);
  const Descriptor reader("/sys/class/gpio/unexport", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC);
  EXPECT_EQ(fcntl(reader.Get(), F_GETFL), O_WRONLY);
}

TEST_F(Descriptors, BlockingCanBeChanged) {
  const Descriptor file("/dev/uio1", O_RDWR);
  const int duplicate = dup(file.Get());
  EXPECT_EQ(fcntl(duplicate, F_SETFL, O_NONBLOCK | O_CREAT), 0);
  EXPECT_EQ(fcntl(file.Get(), F_GETFL), O_RDWR | O_NONBLOCK);
  EXPECT_EQ(Count(file.Get()), -EAGAIN);
  EXPECT_EQ(close(duplicate), 0);
  VideoClient client("/dev/video1");
  client.Start(1024, 640, 2);
  EXPECT_EQ(fcntl(client.fd(), F_SETFL, O_NONBLOCK), 0);
  EXPECT_TRUE(client.Dequeue().empty());
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Descriptors, SurviveAnExecUnlessTheyAreToldOtherwise) {
  const Descriptor closing("/dev/uio1", O_RDWR | O_CLOEXEC);
  const int inherited = dup(closing.Get());
  EXPECT_EQ(fcntl(closing.Get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(device_, F_GETFD), 0);
  const int changed = dup(device_);
  EXPECT_EQ(fcntl(changed, F_SETFD, FD_CLOEXEC), 0);
  EXPECT_EQ(fcntl(changed, F_GETFD), FD_CLOEXEC);

  std::string test;
  for (const int fd : {device_, inherited})
    test += "test -L /proc/self/fd/" + std::to_string(fd) + " && ";
  for (const int fd : {closing.Get(), changed}) {
    test += "! test -L /proc/self/fd/" + std::to_string(fd) + " && ";
  }
  const pid_t child = fork();
  if (child == 0) {
    execl("/bin/sh", "sh", "-c", (test + "true").c_str(), nullptr);
    _exit(127);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  close(inherited);
  close(changed);
}

// --- The end of many -------------------------------------------------------------------------

TEST_F(Descriptors, EndInARange) {
  const int second = dup2(device_, kHigh);
  EXPECT_EQ(close_range(kHigh - 3, kHigh + 3, 0), 0);
  EXPECT_EQ(OpenFiles(), 1);
  EXPECT_TRUE(IsFree(second));
  EXPECT_EQ(Count(device_), -EAGAIN);
  EXPECT_EQ(close_range(static_cast<unsigned>(device_), static_cast<unsigned>(device_), 0), 0);
  EXPECT_EQ(OpenFiles(), 0);
  EXPECT_TRUE(IsFree(device_));
}

TEST_F(Descriptors, AreKeptByARangeThatClosesOnExecOnly) {
  EXPECT_EQ(close_range(3, UINT_MAX, CLOSE_RANGE_CLOEXEC), 0);
  EXPECT_EQ(fcntl(device_, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(Count(device_), -EAGAIN);
  EXPECT_EQ(Outcome(close_range(5, 4, 0)), -EINVAL);
}

// Checks the parts of the board that do not depend on the application's descriptors.
bool BoardWorks() {
  const Descriptor memory("/dev/mem", O_RDWR);
  void* const ram = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, memory.Get(), 0);
  if (ram == MAP_FAILED) return false;
  *static_cast<volatile char*>(ram) = 1;
  munmap(ram, 4096);
  const Descriptor buffer("/dev/udmabuf0", O_RDWR);
  void* const dma = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, buffer.Get(), 0);
  return dma != MAP_FAILED && munmap(dma, 4096) == 0;
}

TEST_F(Descriptors, CanAllBeClosed) {
  closefrom(3);
  EXPECT_EQ(OpenFiles(), 0);
  EXPECT_TRUE(IsFree(device_));
  EXPECT_TRUE(BoardWorks());
  for (int fd = 3; fd < 1024; ++fd) close(fd);
  EXPECT_TRUE(BoardWorks());
}

// Frames still arrive in buffers that have no descriptor of the application.
TEST_F(Descriptors, OfTheBoardItselfAreNobodyElses) {
  std::vector<int> own;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone);
    if (target.find("board-ram") != std::string::npos) {
      own.push_back(std::stoi(entry.path().filename()));
    }
  }
  ASSERT_EQ(own.size(), 1u);
  EXPECT_GE(own[0], 32) << "in the way of the application's";
  EXPECT_EQ(Outcome(close(own[0])), -EBADF);
  EXPECT_EQ(Outcome(dup2(device_, own[0])), -EBUSY);
  EXPECT_TRUE(BoardWorks());
}

// --- Other processes -------------------------------------------------------------------------

// A child that shares all memory with its parent, but no descriptors.
int InVforkChild(const std::function<void()>& act) {
  const pid_t child = vfork();
  if (child == 0) {
    act();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

TEST_F(Descriptors, WhatAChildClosesStaysOpenInTheParent) {
  const Descriptor other("/dev/i2c-0", O_RDWR);
  const std::vector<std::function<void()>> acts{
      [&] { close(device_); }, [&] { dup2(0, device_); }, [&] { dup2(other.Get(), device_); },
      [&] { closefrom(3); },   [&] { dup2(device_, 0); }, [&] { dup(device_); }};
  for (const auto& act : acts) {
    EXPECT_EQ(InVforkChild(act), 0);
    EXPECT_EQ(Count(device_), -EAGAIN);
    EXPECT_EQ(OpenFiles(), 1);
    EXPECT_TRUE(BoardWorks());
  }
  char byte = 0;
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  EXPECT_EQ(read(ends[0], &byte, 1), 1);
  close(ends[0]);
  close(ends[1]);
  EXPECT_NE(Outcome(read(0, &byte, 0)), -EBADF) << "the standard input is no device";
}

TEST_F(Descriptors, OfAForkedChildAreItsOwn) {
  const int second = dup(device_);
  const pid_t child = fork();
  if (child == 0) {
    close(device_);
    const bool ended = OpenFiles() == 1 && close(second) == 0 && OpenFiles() == 0;
    _exit(ended && IsFree(second) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Count(second), -EAGAIN);
  close(second);
}

// --- Streams ---------------------------------------------------------------------------------

TEST_F(Descriptors, CanBecomeStreams) {
  const int fd = open("/sys/class/gpio/export", O_WRONLY);
  FILE* const stream = fdopen(fd, "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fileno(stream), fd);
  EXPECT_GT(fputs("907", stream), 0);
  EXPECT_EQ(fclose(stream), 0);
  EXPECT_THAT(Transcript(), testing::HasSubstr("gpio write export 907\n"));
  EXPECT_EQ(tessaline_board_open_files("gpio"), 0);
  EXPECT_TRUE(IsFree(fd));
}

TEST_F(Descriptors, BelongToStreams) {
  FILE* const stream = fopen("/sys/class/gpio/export", "we");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fcntl(fileno(stream), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(fileno(stream), F_GETFL), O_WRONLY);
  EXPECT_EQ(tessaline_board_open_files("gpio"), 1);
  EXPECT_EQ(fclose(stream), 0);
  EXPECT_EQ(tessaline_board_open_files("gpio"), 0);
}

}  // namespace
}  // namespace board_test
