// The capture devices with drivers that give wrong answers.
#include <gmock/gmock.h>

#include <climits>
#include <fstream>
#include <memory>
#include <string>

#include "Devices/capture/V4l2Base.h"
#include "Devices/capture/V4l2BufFactory.h"
#include "support/BoardFixture.h"
#include "support/ChangedDriver.h"
#include "support/FrameSource.h"
#include "support/LoggedLines.h"

namespace {

using namespace VeltranoSDK;     // NOLINT(google-build-using-namespace)
using namespace tessaline_test;  // NOLINT(google-build-using-namespace)
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr unsigned kWidth = 1024;
constexpr unsigned kHeight = 640;

// A series whose devices are of the tested kind.
class V4l2Driver : public BoardFixture, public testing::WithParamInterface<SeriesNumber> {
 protected:
  V4l2Driver() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    FrameSource::Prepare();
    FrameSource::Route(FrameSource::kStrips);
    tessaline_board_transcript_clear();
    ASSERT_TRUE(device->Open("/dev/video1"));
    ASSERT_TRUE(device->SetFmt(kWidth, kHeight));
  }

  void TearDown() override {
    changed_driver = nullptr;
    FrameSource::Trigger(false);
    device->StreamOff();
    device->Close();
    BoardFixture::TearDown();
  }

  // Changes the driver's answer to a request.
  template <typename Record, typename Change>
  static void AnswerOtherwise(unsigned long to, Change change) {
    changed_driver = [to, change](Ioctl call, int fd, unsigned long request, void* argument) {
      const int result = call(fd, request, argument);
      if (request != to) return result;
      return change(*static_cast<Record*>(argument), result);
    };
  }

  // The number of mappings of the board's memory in this process.
  static int Mappings() {
    std::ifstream maps("/proc/self/maps");
    int mappings = 0;
    for (std::string line; std::getline(maps, line);) {
      mappings += line.find("memfd:") != std::string::npos;
    }
    return mappings;
  }

  LoggedLines log{TESSALINE_LOG_ERROR};
  const std::shared_ptr<DevFOps::V4l2Base> device =
      V4l2BufFactory::CreateV4l2BufBySeries(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Flavours, V4l2Driver, testing::Values(kSeries21, kSeries24, kSeries25));

TEST_P(V4l2Driver, ThatGrantsBuffersWithoutNumberIsNotBelieved) {
  AnswerOtherwise<v4l2_requestbuffers>(VIDIOC_REQBUFS, [](auto& request, int result) {
    request.count = UINT_MAX;
    return result;
  });
  EXPECT_FALSE(device->ReqBufs(4));
  EXPECT_THAT(log.Take(), Contains(HasSubstr("v4l2 VIDIOC_REQBUFS failed: Value too large")));
}

TEST_P(V4l2Driver, AskedForBuffersAgainGivesBackTheFirst) {
  const int before = Mappings();
  ASSERT_TRUE(device->ReqBufs(8));
  ASSERT_GT(Mappings(), before) << "it would not be seen";
  ASSERT_TRUE(device->StreamOn());
  FrameSource::Trigger(true);
  while (device->Index() < 2) {
    if (device->Index() > 0) device->QBuf();
    ASSERT_NE(device->DqBuf(), nullptr);
  }
  FrameSource::Trigger(false);
  ASSERT_TRUE(device->StreamOff());
  ASSERT_TRUE(device->ReqBufs(1));
  // The application no longer has the frame of the first request.
  EXPECT_FALSE(device->QBuf());
  device->Close();
  EXPECT_EQ(Mappings(), before);
}

TEST_P(V4l2Driver, WhoseBuffersAreGoneAfterAFailedRequest) {
  ASSERT_TRUE(device->ReqBufs(4));
  ASSERT_TRUE(device->StreamOn());
  FrameSource::Trigger(true);
  unsigned index = 0;
  ASSERT_NE(device->DqBuf(index), nullptr);
  FrameSource::Trigger(false);
  ASSERT_TRUE(device->StreamOff());
  AnswerOtherwise<v4l2_requestbuffers>(VIDIOC_REQBUFS, [](auto&, int) {
    errno = EBUSY;
    return -1;
  });
  EXPECT_FALSE(device->ReqBufs(4));
  EXPECT_FALSE(device->QBuf(index));
  EXPECT_EQ(device->BufferSize(), 0u);
}

TEST_P(V4l2Driver, ThatMixesUpTheBuffersItDescribesIsToldWhichOneItIs) {
  AnswerOtherwise<v4l2_buffer>(VIDIOC_QUERYBUF, [](auto& buffer, int result) {
    buffer.index = 0;
    return result;
  });
  ASSERT_TRUE(device->ReqBufs(3));
  EXPECT_THAT(Events(), Contains(HasSubstr("VIDIOC_QBUF 2")));
}

TEST_P(V4l2Driver, ThatRefusesABufferAndOverwritesItsNumberGetsItAgain) {
  ASSERT_TRUE(device->ReqBufs(4));
  ASSERT_TRUE(device->StreamOn());
  FrameSource::Trigger(true);
  ASSERT_NE(device->DqBuf(), nullptr);
  FrameSource::Trigger(false);
  const unsigned taken = device->Index();
  changed_driver = [](Ioctl call, int fd, unsigned long request, void* argument) {
    if (request != VIDIOC_QBUF) return call(fd, request, argument);
    static_cast<v4l2_buffer*>(argument)->index = 0xFFFFFF00;
    errno = EIO;
    return -1;
  };
  EXPECT_FALSE(device->QBuf());
  changed_driver = nullptr;
  EXPECT_EQ(device->Index(), taken);
  EXPECT_TRUE(device->QBuf());
}

}  // namespace
