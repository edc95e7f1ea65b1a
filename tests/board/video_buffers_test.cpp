// The buffers of a capture device, seen by a program that knows the kernel's rules for them.

#include <errno.h>
#include <gmock/gmock.h>
#include <poll.h>

#include <array>
#include <cstring>
#include <optional>

#include "board/BoardFixture.h"
#include "board/VideoClient.h"

namespace {

using namespace board_test;  // NOLINT(google-build-using-namespace)

constexpr unsigned kBytes = 64 * 64;

class VideoBuffers : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    client_.emplace("/dev/video1", O_RDWR | O_NONBLOCK);
    other_.emplace("/dev/video1", O_RDWR | O_NONBLOCK);
    ASSERT_EQ(client_->SetFormat(64, 64), 0);
  }

  long Call(unsigned long request, void* argument) const {
    return Outcome(ioctl(client_->fd(), request, argument));
  }

  static v4l2_create_buffers Wanted(unsigned count, unsigned bytes = kBytes) {
    v4l2_create_buffers wanted{};
    wanted.count = count;
    wanted.memory = V4L2_MEMORY_MMAP;
    wanted.format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    wanted.format.fmt.pix.sizeimage = bytes;
    return wanted;
  }

  long Create(v4l2_create_buffers wanted) const { return Call(VIDIOC_CREATE_BUFS, &wanted); }

  v4l2_buffer Described(unsigned index) const {
    v4l2_buffer buffer = VideoClient::Buffer(index);
    EXPECT_EQ(Call(VIDIOC_QUERYBUF, &buffer), 0);
    return buffer;
  }

  static v4l2_exportbuffer Exported(unsigned index, unsigned flags) {
    v4l2_exportbuffer request{};
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.index = index;
    request.flags = flags;
    return request;
  }

  void* Map(const v4l2_buffer& buffer) const {
    return mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, client_->fd(),
                buffer.m.offset);
  }

  std::optional<VideoClient> client_;
  std::optional<VideoClient> other_;
};

TEST_F(VideoBuffers, AreSaidToBeMappableOrTheUsersAndToOutliveTheQueue) {
  constexpr unsigned kCapabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_USERPTR |
                                     V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS;
  v4l2_requestbuffers request{};
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_USERPTR;
  ASSERT_EQ(Call(VIDIOC_REQBUFS, &request), 0);
  EXPECT_EQ(request.capabilities, kCapabilities);
  v4l2_create_buffers wanted = Wanted(0);
  ASSERT_EQ(Call(VIDIOC_CREATE_BUFS, &wanted), 0);
  EXPECT_EQ(wanted.capabilities, kCapabilities);
}

TEST_F(VideoBuffers, MoreCanBeCreatedAndMayBeLarger) {
  ASSERT_EQ(client_->Request(2), 2);
  v4l2_create_buffers wanted = Wanted(3, 3 * kBytes + 1);
  ASSERT_EQ(Call(VIDIOC_CREATE_BUFS, &wanted), 0);
  EXPECT_EQ(wanted.index, 2u);
  EXPECT_EQ(wanted.count, 3u);
  EXPECT_EQ(Described(1).length, kBytes);
  EXPECT_EQ(Described(4).length, 3 * kBytes + 1);
  EXPECT_EQ(Described(4).m.offset - Described(3).m.offset, 4 * kBytes) << "whole pages";
  auto* const third = static_cast<char*>(Map(Described(2)));
  auto* const fourth = static_cast<char*>(Map(Described(3)));
  ASSERT_NE(third, MAP_FAILED);
  ASSERT_NE(fourth, MAP_FAILED);
  third[3 * kBytes] = 1;
  EXPECT_EQ(fourth[0], 0) << "each has memory of its own";
  munmap(third, 3 * kBytes + 1);
  munmap(fourth, 3 * kBytes + 1);
}

TEST_F(VideoBuffers, AreCreatedUpTo32) {
  v4l2_create_buffers wanted = Wanted(30);
  ASSERT_EQ(Call(VIDIOC_CREATE_BUFS, &wanted), 0);
  EXPECT_EQ(wanted.index, 0u);
  wanted = Wanted(30);
  ASSERT_EQ(Call(VIDIOC_CREATE_BUFS, &wanted), 0);
  EXPECT_EQ(wanted.count, 2u);
  EXPECT_EQ(Create(Wanted(1)), -ENOBUFS);
  wanted = Wanted(0);
  ASSERT_EQ(Call(VIDIOC_CREATE_BUFS, &wanted), 0) << "only asks";
  EXPECT_EQ(wanted.index, 32u);
}

TEST_F(VideoBuffers, AreNotCreatedAgainstTheRules) {
  EXPECT_EQ(Create(Wanted(1, kBytes - 1)), -EINVAL) << "a frame does not fit";
  EXPECT_EQ(Create(Wanted(1, 0)), -EINVAL);
  v4l2_create_buffers wanted = Wanted(1);
  wanted.format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  EXPECT_EQ(Create(wanted), -EINVAL);
  wanted = Wanted(1);
  wanted.memory = V4L2_MEMORY_DMABUF;
  EXPECT_EQ(Create(wanted), -EINVAL);
  ASSERT_EQ(client_->Request(1), 1);
  wanted = Wanted(1);
  wanted.memory = V4L2_MEMORY_USERPTR;
  EXPECT_EQ(Create(wanted), -EINVAL) << "two kinds of memory";
  wanted = Wanted(1);
  EXPECT_EQ(Outcome(ioctl(other_->fd(), VIDIOC_CREATE_BUFS, &wanted)), -EBUSY);
}

TEST_F(VideoBuffers, BelongToTheOneWhoCreatedThem) {
  ASSERT_EQ(Create(Wanted(1)), 0);
  EXPECT_EQ(other_->Request(1), -1);
  v4l2_buffer buffer = VideoClient::Buffer(0);
  EXPECT_EQ(Outcome(ioctl(other_->fd(), VIDIOC_QBUF, &buffer)), -EBUSY);
  EXPECT_EQ(Outcome(ioctl(other_->fd(), VIDIOC_PREPARE_BUF, &buffer)), -EBUSY);
  EXPECT_EQ(Outcome(ioctl(other_->fd(), VIDIOC_QUERYBUF, &buffer)), 0) << "anybody may ask";
  v4l2_exportbuffer request = Exported(0, O_CLOEXEC);
  EXPECT_EQ(Outcome(ioctl(other_->fd(), VIDIOC_EXPBUF, &request)), -EBUSY);
  const int duplicate = dup(client_->fd());
  EXPECT_EQ(Outcome(ioctl(duplicate, VIDIOC_QBUF, &buffer)), 0) << "the same open file";
  close(duplicate);
}

TEST_F(VideoBuffers, ThereIsNoMemoryBeyondA32BitOffset) {
  ASSERT_EQ(client_->SetFormat(16384, 16384), 0);
  EXPECT_EQ(client_->Request(32), 16);
  EXPECT_EQ(Create(Wanted(1, 16384 * 16384)), -ENOMEM);
}

TEST_F(VideoBuffers, CanBePreparedOnce) {
  ASSERT_EQ(client_->Request(2), 2);
  v4l2_buffer buffer = VideoClient::Buffer(0);
  ASSERT_EQ(Call(VIDIOC_PREPARE_BUF, &buffer), 0);
  EXPECT_TRUE(buffer.flags & V4L2_BUF_FLAG_PREPARED);
  EXPECT_FALSE(buffer.flags & V4L2_BUF_FLAG_QUEUED);
  EXPECT_EQ(Call(VIDIOC_PREPARE_BUF, &buffer), -EINVAL);
  ASSERT_EQ(Call(VIDIOC_QBUF, &buffer), 0);
  EXPECT_FALSE(buffer.flags & V4L2_BUF_FLAG_PREPARED);
  EXPECT_TRUE(buffer.flags & V4L2_BUF_FLAG_QUEUED);
  EXPECT_EQ(Call(VIDIOC_PREPARE_BUF, &buffer), -EINVAL) << "queued";
  buffer = VideoClient::Buffer(2);
  EXPECT_EQ(Call(VIDIOC_PREPARE_BUF, &buffer), -EINVAL) << "none such";
  ASSERT_EQ(client_->StreamOff(), 0);
  EXPECT_FALSE(Described(0).flags & (V4L2_BUF_FLAG_PREPARED | V4L2_BUF_FLAG_QUEUED));
}

TEST_F(VideoBuffers, ArePartOfNoRequest) {
  ASSERT_EQ(client_->Request(1), 1);
  v4l2_buffer buffer = VideoClient::Buffer(0);
  buffer.flags = V4L2_BUF_FLAG_REQUEST_FD;
  EXPECT_EQ(Call(VIDIOC_PREPARE_BUF, &buffer), -EINVAL);
  EXPECT_EQ(Call(VIDIOC_QBUF, &buffer), -EBADR);
}

TEST_F(VideoBuffers, AreExportedAsDescriptorsOfTheirMemory) {
  ASSERT_EQ(client_->Request(2), 2);
  auto* const mapped = static_cast<char*>(Map(Described(1)));
  ASSERT_NE(mapped, MAP_FAILED);
  v4l2_exportbuffer request = Exported(1, O_RDWR | O_CLOEXEC);
  ASSERT_EQ(Call(VIDIOC_EXPBUF, &request), 0);
  EXPECT_EQ(fcntl(request.fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(lseek(request.fd, 0, SEEK_END), off_t{kBytes});
  auto* const exported =
      static_cast<char*>(mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, request.fd, 0));
  ASSERT_NE(exported, MAP_FAILED);
  mapped[17] = 42;
  EXPECT_EQ(exported[17], 42);
  close(request.fd);
  ASSERT_EQ(client_->Request(0), 0);
  EXPECT_EQ(exported[17], 42) << "outlives the queue's buffer";
  munmap(mapped, kBytes);
  munmap(exported, kBytes);
}

TEST_F(VideoBuffers, AreExportedWithTheAccessThatWasAskedFor) {
  ASSERT_EQ(client_->Request(1), 1);
  v4l2_exportbuffer request = Exported(0, O_RDONLY);
  ASSERT_EQ(Call(VIDIOC_EXPBUF, &request), 0);
  EXPECT_EQ(fcntl(request.fd, F_GETFD), 0);
  EXPECT_EQ(mmap(nullptr, kBytes, PROT_WRITE, MAP_SHARED, request.fd, 0), MAP_FAILED);
  void* const readable = mmap(nullptr, kBytes, PROT_READ, MAP_SHARED, request.fd, 0);
  EXPECT_NE(readable, MAP_FAILED);
  munmap(readable, kBytes);
  close(request.fd);
}

TEST_F(VideoBuffers, AreNotExportedAgainstTheRules) {
  v4l2_exportbuffer request = Exported(0, O_RDWR);
  EXPECT_EQ(Call(VIDIOC_EXPBUF, &request), -EINVAL) << "no buffers";
  ASSERT_EQ(client_->Request(1), 1);
  request = Exported(1, O_RDWR);
  EXPECT_EQ(Call(VIDIOC_EXPBUF, &request), -EINVAL) << "none such";
  request = Exported(0, O_RDWR | O_NONBLOCK);
  EXPECT_EQ(Call(VIDIOC_EXPBUF, &request), -EINVAL);
  request = Exported(0, O_RDWR);
  request.plane = 1;
  EXPECT_EQ(Call(VIDIOC_EXPBUF, &request), -EINVAL);
  request = Exported(0, O_RDWR);
  request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  EXPECT_EQ(Call(VIDIOC_EXPBUF, &request), -EINVAL);
  ASSERT_EQ(client_->Request(1, V4L2_MEMORY_USERPTR), 1);
  request = Exported(0, O_RDWR);
  EXPECT_EQ(Call(VIDIOC_EXPBUF, &request), -EINVAL) << "the user's own";
}

TEST_F(VideoBuffers, AreMappedSharedReadableAndNoLongerThanTheyAre) {
  ASSERT_EQ(client_->Request(1), 1);
  const auto map = [this](std::size_t bytes, int protection, int flags, off_t offset) {
    void* const address = mmap(nullptr, bytes, protection, flags, client_->fd(), offset);
    if (address != MAP_FAILED) munmap(address, bytes);
    return address == MAP_FAILED ? -errno : 0;
  };
  EXPECT_EQ(map(kBytes, PROT_READ, MAP_SHARED, 0), 0);
  EXPECT_EQ(map(kBytes, PROT_WRITE, MAP_SHARED, 0), -EINVAL);
  EXPECT_EQ(map(kBytes, PROT_READ, MAP_PRIVATE, 0), -EINVAL);
  EXPECT_EQ(map(kBytes + 1, PROT_READ, MAP_SHARED, 0), -EINVAL);
  EXPECT_EQ(map(kBytes, PROT_READ, MAP_SHARED, 4096), -EINVAL);
  ASSERT_EQ(client_->Request(1, V4L2_MEMORY_USERPTR), 1);
  EXPECT_EQ(map(kBytes, PROT_READ, MAP_SHARED, 0), -EINVAL);
}

TEST_F(VideoBuffers, OfTheUserKeepTheirLengthAndMustBeWritable) {
  ASSERT_EQ(client_->Request(1, V4L2_MEMORY_USERPTR), 1);
  const auto queue = [this](void* memory, unsigned length) {
    v4l2_buffer buffer = VideoClient::Buffer(0, V4L2_MEMORY_USERPTR);
    buffer.m.userptr = reinterpret_cast<unsigned long>(memory);
    buffer.length = length;
    return Call(VIDIOC_QBUF, &buffer);
  };
  void* const fixed = mmap(nullptr, 2 * kBytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(fixed, MAP_FAILED);
  EXPECT_EQ(queue(fixed, kBytes), -EFAULT) << "read-only";
  ASSERT_EQ(mprotect(fixed, kBytes, PROT_READ | PROT_WRITE), 0);
  EXPECT_EQ(queue(fixed, 2 * kBytes), -EFAULT) << "read-only at its end";
  EXPECT_EQ(queue(fixed, kBytes), 0);
  ASSERT_EQ(client_->StreamOff(), 0);
  ASSERT_EQ(mprotect(fixed, 2 * kBytes, PROT_READ | PROT_WRITE), 0);
  EXPECT_EQ(queue(fixed, 2 * kBytes), 0);
  EXPECT_EQ(Described(0).length, 2 * kBytes);
  munmap(fixed, 2 * kBytes);
}

TEST_F(VideoBuffers, PollHasNothingToWaitForBeforeOneIsQueued) {
  const auto events = [this] {
    pollfd waiting{client_->fd(), POLLIN, 0};
    return poll(&waiting, 1, 0) == 0 ? short{0} : waiting.revents;
  };
  EXPECT_EQ(events(), POLLERR);
  ASSERT_EQ(client_->Request(2), 2);
  ASSERT_EQ(client_->StreamOn(), 0);
  EXPECT_EQ(events(), POLLERR) << "streaming, but nothing can arrive";
  v4l2_buffer buffer = VideoClient::Buffer(0);
  ASSERT_EQ(Call(VIDIOC_QBUF, &buffer), 0);
  EXPECT_EQ(events(), 0);
  ASSERT_EQ(client_->StreamOff(), 0);
  EXPECT_EQ(events(), POLLERR);
  ASSERT_EQ(client_->StreamOn(), 0);
  EXPECT_EQ(events(), POLLERR) << "the queue was emptied";
}

// --- What every driver's calls have in common ----------------------------------------------

TEST_F(VideoBuffers, ABadAddressIsAnErrorOfTheCall) {
  void* const gone = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  void* const fixed = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(gone, MAP_FAILED);
  ASSERT_NE(fixed, MAP_FAILED);
  for (const unsigned long request :
       {VIDIOC_QUERYCAP, VIDIOC_ENUM_FMT, VIDIOC_G_FMT, VIDIOC_S_FMT, VIDIOC_REQBUFS,
        VIDIOC_CREATE_BUFS, VIDIOC_QUERYBUF, VIDIOC_EXPBUF, VIDIOC_PREPARE_BUF, VIDIOC_STREAMON,
        VIDIOC_S_INPUT, VIDIOC_G_PRIORITY}) {
    SCOPED_TRACE(request);
    for (void* const bad : {static_cast<void*>(nullptr), reinterpret_cast<void*>(-1L), gone}) {
      EXPECT_EQ(Call(request, bad), -EFAULT);
    }
  }
  for (const unsigned long request : {VIDIOC_QBUF, VIDIOC_DQBUF}) {
    EXPECT_EQ(Call(request, nullptr), -EFAULT);
    EXPECT_EQ(Call(request, reinterpret_cast<void*>(-1L)), -EFAULT);
  }
  EXPECT_EQ(Call(VIDIOC_QUERYCAP, fixed), -EFAULT) << "read-only";
  munmap(gone, 4096);
  munmap(fixed, 4096);
}

TEST_F(VideoBuffers, AFailedCallChangesNothingOfTheCallers) {
  v4l2_create_buffers wanted = Wanted(1, 1);
  wanted.index = 77;
  const v4l2_create_buffers before = wanted;
  EXPECT_EQ(Call(VIDIOC_CREATE_BUFS, &wanted), -EINVAL);
  EXPECT_EQ(std::memcmp(&wanted, &before, sizeof wanted), 0);
}

TEST_F(VideoBuffers, WhatTheDriverDoesNotHaveIsNoIoctlOfIt) {
  std::array<char, 256> argument{};
  for (const unsigned long request :
       {VIDIOC_QUERYCTRL, VIDIOC_G_CTRL, VIDIOC_S_CTRL, VIDIOC_QUERY_EXT_CTRL, VIDIOC_G_EXT_CTRLS,
        VIDIOC_SUBSCRIBE_EVENT, VIDIOC_DQEVENT, VIDIOC_G_PARM, VIDIOC_S_PARM,
        VIDIOC_ENUM_FRAMEINTERVALS, VIDIOC_G_STD, VIDIOC_CROPCAP, VIDIOC_G_SELECTION,
        static_cast<unsigned long>(VIDIOC_LOG_STATUS)}) {
    EXPECT_EQ(Call(request, argument.data()), -ENOTTY) << request;
  }
  EXPECT_EQ(Outcome(read(client_->fd(), argument.data(), argument.size())), -EINVAL);
  EXPECT_EQ(Outcome(write(client_->fd(), argument.data(), argument.size())), -EINVAL);
}

TEST_F(VideoBuffers, TheRequestIsANumberOf32Bits) {
  const int request = static_cast<int>(VIDIOC_QUERYCAP);  // negative, as in many programs
  v4l2_capability capability{};
  EXPECT_EQ(Call(static_cast<unsigned long>(request), &capability), 0);
}

TEST_F(VideoBuffers, APriorityAlsoKeepsOthersFromCreating) {
  unsigned priority = V4L2_PRIORITY_RECORD;
  ASSERT_EQ(Outcome(ioctl(other_->fd(), VIDIOC_S_PRIORITY, &priority)), 0);
  EXPECT_EQ(Create(Wanted(1)), -EBUSY);
  other_->Close();
  EXPECT_EQ(Create(Wanted(1)), 0);
}

}  // namespace
