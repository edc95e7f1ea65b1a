// The three kinds of capture device on the virtual board: their requests to the driver, the frames
// that they return, and what they print if the driver fails.
#include <errno.h>
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <typeinfo>

#include "Devices/capture/ReservedMemory.h"
#include "Devices/capture/UdmaBuf.h"
#include "Devices/capture/V4l2BufFactory.h"
#include "Devices/capture/V4l2Test.h"
#include "Runnable/Runnable.h"
#include "support/Waiting.h"

namespace {

using namespace VeltranoSDK;           // NOLINT(google-build-using-namespace)
using namespace VeltranoSDK::DevFOps;  // NOLINT(google-build-using-namespace)
using namespace tessaline_test;        // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

Lines EventsOf(const Lines& events, std::string_view device) {
  Lines found;
  for (const std::string& event : events) {
    if (event.starts_with(device)) found.push_back(event);
  }
  return found;
}

// The values written to the DMA area's attribute files: "sync_size 8".
Lines Attributes(const Lines& events) {
  Lines written;
  for (const std::string& event : EventsOf(events, "udmabuf0 write ")) {
    written.push_back(event.substr(event.find("sync_")));
  }
  return written;
}

INSTANTIATE_TEST_SUITE_P(Flavours, V4l2Flavour, AllFlavours());

TEST_P(V4l2Flavour, SetsTheStreamUpInTheDriversOrder) {
  Start(*device, 2);
  const std::string memory = GetParam().flavour == Flavour::kFd ? "MMAP" : "USERPTR";
  Lines expected{"video1 VIDIOC_QUERYCAP", "video1 VIDIOC_TRY_FMT 1024x640 GREY",
                 "video1 VIDIOC_S_FMT 1024x640 GREY",
                 "video1 VIDIOC_REQBUFS " + memory + " 2 -> 2"};
  for (const std::string index : {"0", "1"}) {
    expected.push_back("video1 VIDIOC_QUERYBUF " + index);
    if (GetParam().flavour == Flavour::kFd) expected.push_back("video1 mmap");
    expected.push_back("video1 VIDIOC_QBUF " + index);
  }
  expected.push_back("video1 VIDIOC_STREAMON");
  Lines events = EventsOf(Events(), "video1 ");
  for (std::string& event : events) {
    if (event.starts_with("video1 mmap")) event = "video1 mmap";
  }
  EXPECT_EQ(events, expected);
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_P(V4l2Flavour, HandsOutWhatTheFpgaWrote) {
  Start(*device);
  FrameSource::Trigger(true);
  std::uint64_t last_id = 0;
  for (int buffer = 0; buffer < 40; ++buffer) {
    const std::byte* data = device->DqBuf();
    ASSERT_NE(data, nullptr);
    ASSERT_GE(device->BufferSize(), kBytes);
    std::uint64_t id, count;
    memcpy(&id, data, sizeof id);
    memcpy(&count, data + kBytes - 8, sizeof count);
    EXPECT_GE(count, 1u);
    EXPECT_LE(count, 10u);
    EXPECT_GT(id, last_id);
    EXPECT_LT(device->Index(), 4u);
    last_id = id;
    ASSERT_TRUE(device->QBuf());
  }
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_P(V4l2Flavour, ClearsTheMarkerOfABufferGivenBackByIndex) {
  Start(*device);
  FrameSource::Trigger(true);
  unsigned index = 99;
  std::byte* data = device->DqBuf(index);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(index, device->Index());
  FrameSource::Trigger(false);
  const std::size_t marker = device->BufferSize() - 8;
  memset(data + marker - 8, 0xFF, 16);
  EXPECT_TRUE(device->QBuf(index));
  EXPECT_EQ(NonZero(data + marker, 8), 0u);
  EXPECT_EQ(NonZero(data + marker - 8, 8), 8u);
}

TEST_P(V4l2Flavour, LeavesTheMarkerOfABufferGivenBackWithoutIndex) {
  Start(*device);
  FrameSource::Trigger(true);
  std::byte* data = device->DqBuf();
  ASSERT_NE(data, nullptr);
  FrameSource::Trigger(false);
  memset(data + device->BufferSize() - 8, 0xFF, 8);
  EXPECT_TRUE(device->QBuf());
  EXPECT_EQ(NonZero(data + device->BufferSize() - 8, 8), 8u);
}

TEST_P(V4l2Flavour, RefusesABufferItDoesNotHave) {
  const Lines refused{Logged("v4l2 VIDIOC_QBUF failed: Invalid argument")};
  EXPECT_FALSE(device->QBuf());
  EXPECT_EQ(log.Take(), refused);
  EXPECT_FALSE(device->QBuf(0));
  EXPECT_EQ(log.Take(), refused);
  Start(*device);
  EXPECT_FALSE(device->QBuf(3)) << "that one is the driver's";
  EXPECT_EQ(log.Take(), refused);
  EXPECT_FALSE(device->QBuf(4));
  EXPECT_FALSE(device->QBuf(0xFFFFFFFF));
  EXPECT_FALSE(device->QBuf());
  log.Take();

  FrameSource::Trigger(true);
  unsigned index = 0;
  ASSERT_NE(device->DqBuf(index), nullptr);
  EXPECT_TRUE(device->QBuf(index));
  EXPECT_FALSE(device->QBuf(index)) << "given back twice";
  ASSERT_NE(device->DqBuf(), nullptr);
  EXPECT_TRUE(device->QBuf());
  EXPECT_FALSE(device->QBuf()) << "given back twice";
}

TEST_P(V4l2Flavour, SaysWhyItCannotOpen) {
  tessaline_board_fault("video1", "open", 0, 1, EACCES);
  EXPECT_FALSE(device->Open("/dev/video1"));
  EXPECT_THAT(log.Take(), ElementsAre(Logged("v4l2 open file failed: Permission denied")));
  tessaline_board_fault("video1", "VIDIOC_QUERYCAP", 0, 1, ENOTTY);
  EXPECT_FALSE(device->Open("/dev/video1"));
  EXPECT_THAT(log.Take(), ElementsAre(Logged("v4l2 VIDIOC_QUERYCAP failed")));
  EXPECT_TRUE(device->Close());
  EXPECT_TRUE(device->Close());
}

// The message names the source file of this kind of device and the line of the call. Two failures
// have different lines.
TEST_P(V4l2Flavour, NamesTheLineOfTheFailingCall) {
  static std::vector<int> lines;
  lines.clear();
  log_add_callback([](log_Event* event) { lines.push_back(event->line); }, nullptr,
                   TESSALINE_LOG_ERROR);
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(device->SetFmt(100, 200));
    EXPECT_FALSE(device->StreamOn());
  }
  // There is one more sink for each kind of device that this process has tested.
  lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_NE(lines[0], lines[1]);
  EXPECT_EQ(lines[0], lines[2]);
  EXPECT_EQ(lines[1], lines[3]);
}

TEST_P(V4l2Flavour, SaysWhyItCannotDoWithoutADevice) {
  EXPECT_FALSE(device->SetFmt(100, 200));
  EXPECT_EQ(device->DqBuf(), nullptr);
  EXPECT_FALSE(device->StreamOn());
  EXPECT_FALSE(device->StreamOff());
  device->ClearBuf();
  EXPECT_EQ(device->BufferSize(), 0u);
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Logged("v4l2 VIDIOC_TRY_FMT failed: Bad file descriptor, width100, height200"),
                  Logged("v4l2 VIDIOC_DQBUF failed: Bad file descriptor"),
                  Logged("v4l2 VIDIOC_STREAMON failed: Bad file descriptor"),
                  Logged("v4l2 VIDIOC_STREAMON failed: Bad file descriptor")));
}

TEST_P(V4l2Flavour, SaysWhichRequestTheDriverRefused) {
  ASSERT_TRUE(device->Open("/dev/video1"));
  tessaline_board_fault("video1", "VIDIOC_TRY_FMT", 0, 1, EIO);
  EXPECT_FALSE(device->SetFmt(kWidth, kHeight));
  tessaline_board_fault("video1", "VIDIOC_S_FMT", 0, 1, EBUSY);
  EXPECT_FALSE(device->SetFmt(kWidth, kHeight));
  EXPECT_TRUE(device->SetFmt(kWidth, kHeight));
  tessaline_board_fault("video1", "VIDIOC_REQBUFS", 0, 1, ENOMEM);
  EXPECT_FALSE(device->ReqBufs(4));
  tessaline_board_fault("video1", "VIDIOC_QUERYBUF", 2, 1, EINVAL);
  EXPECT_FALSE(device->ReqBufs(4));
  tessaline_board_fault("video1", "VIDIOC_QBUF", 1, 1, EIO);
  EXPECT_FALSE(device->ReqBufs(4));
  tessaline_board_fault("video1", "VIDIOC_STREAMON", 0, 1, EPIPE);
  EXPECT_FALSE(device->StreamOn());
  tessaline_board_fault("video1", "VIDIOC_STREAMOFF", 0, 1, EIO);
  EXPECT_FALSE(device->StreamOff());
  EXPECT_THAT(
      log.Take(),
      ElementsAre(Logged("v4l2 VIDIOC_TRY_FMT failed: Input/output error, width1024, height640"),
                  Logged("v4l2 VIDIOC_S_FMT failed: Device or resource busy, width1024, height640"),
                  Logged("v4l2 VIDIOC_REQBUFS failed: Cannot allocate memory"),
                  Logged("v4l2 VIDIOC_QUERYBUF failed: Invalid argument"),
                  Logged("v4l2 VIDIOC_QBUF failed: Input/output error"),
                  Logged("v4l2 VIDIOC_STREAMON failed: Broken pipe"),
                  Logged("v4l2 VIDIOC_STREAMON failed: Input/output error")));
  EXPECT_TRUE(device->Close());
}

TEST_P(V4l2Flavour, AFailedDequeueHandsOutNothing) {
  Start(*device);
  FrameSource::Trigger(true);
  ASSERT_NE(device->DqBuf(), nullptr);
  ASSERT_TRUE(device->QBuf());
  tessaline_board_fault("video1", "VIDIOC_DQBUF", 0, 2, EIO);
  EXPECT_EQ(device->DqBuf(), nullptr);
  unsigned index = 77;
  EXPECT_EQ(device->DqBuf(index), nullptr);
  EXPECT_EQ(index, 77u);
  EXPECT_FALSE(device->QBuf()) << "there is no buffer to give back";
  EXPECT_NE(device->DqBuf(), nullptr);
}

TEST_P(V4l2Flavour, LeaksNeitherDescriptorsNorMappings) {
  const int before = OpenDescriptors();
  for (int round = 0; round < 60; ++round) {
    Start(*device);
    ASSERT_TRUE(device->StreamOff());
    ASSERT_TRUE(device->Close());
    ASSERT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
  }
}

TEST_P(V4l2Flavour, AThreadThatWaitsForTheDriverEndsWhenAsked) {
  class Dequeuer final : public Utility::Runnable {
   public:
    explicit Dequeuer(V4l2Base& device) : device_(device) {}
    std::atomic<int> dequeued{0};

   private:
    void LoopRun() override {
      if (!WaitFor(device_.Descriptor()) || device_.DqBuf() == nullptr) return;
      ++dequeued;
      device_.QBuf();
    }
    V4l2Base& device_;
  };

  Start(*device);
  for (int round = 0; round < 60; ++round) {
    const auto dequeuer = std::make_shared<Dequeuer>(*device);
    dequeuer->Start();
    dequeuer->Detach();
    if (round % 2 == 0) {  // the thread waits for ever, or is in the middle of the stream
      ReallyWait(std::chrono::milliseconds(2));
    } else {
      FrameSource::Trigger(true);
      ASSERT_TRUE(Eventually([&] { return dequeuer->dequeued > 3; }));
    }
    dequeuer->Cancel();
    ASSERT_TRUE(dequeuer->WaitUntilGone(10000));
    FrameSource::Trigger(false);
  }

  // None of the four buffers was lost with a thread that had just received it.
  FrameSource::Trigger(true);
  std::set<unsigned int> seen;
  for (int i = 0; i < 8; ++i) {
    unsigned int index = 0;
    ASSERT_NE(device->DqBuf(index), nullptr);
    seen.insert(index);
    ASSERT_TRUE(device->QBuf(index));
  }
  EXPECT_EQ(seen.size(), 4U);
  ASSERT_TRUE(device->StreamOff());
  ASSERT_TRUE(device->Close());
}

TEST_F(V4l2, UserBuffersLieOneAfterAnotherWithASpareBehind) {
  auto& device = Add<V4l2FdUserPtr>();
  ASSERT_TRUE(device.Open("/dev/video1"));
  ASSERT_TRUE(device.SetFmt(2048, 1088));
  ASSERT_TRUE(device.ReqBufs(4));
  const std::size_t frame = 2048 * 1088;
  EXPECT_THAT(EventsOf(Events(), "udmabuf0 mmap"),
              ElementsAre("udmabuf0 mmap " + std::to_string(5 * frame) + " at 0"));
  ASSERT_TRUE(device.StreamOn());
  FrameSource::Trigger(true);
  std::array<std::byte*, 4> data{};
  for (int i = 0; i < 4; ++i) {
    unsigned index = 0;
    std::byte* buffer = device.DqBuf(index);
    ASSERT_NE(buffer, nullptr);
    data.at(index) = buffer;
    EXPECT_EQ(device.BufferSize(), frame);
  }
  for (std::size_t i = 1; i < 4; ++i) EXPECT_EQ(data[i], data[0] + i * frame);
}

TEST_F(V4l2, OnlyTheSynchronisingFlavourSynchronises) {
  auto& device = Add<V4l2FdUserPtrSync>();
  Start(device);
  FrameSource::Trigger(true);
  tessaline_board_transcript_clear();
  unsigned index = 0;
  ASSERT_NE(device.DqBuf(index), nullptr);
  ASSERT_TRUE(device.QBuf(index));
  EXPECT_THAT(Attributes(Events()), IsEmpty());

  // The whole buffer is synchronised for the processor, and the marker for the device.
  ASSERT_NE(device.DqBuf(), nullptr);
  const std::size_t at = kBytes * device.Index();
  EXPECT_EQ(Attributes(Events()),
            (Lines{"sync_offset " + std::to_string(at), "sync_size " + std::to_string(kBytes),
                   "sync_direction 2", "sync_for_cpu 1", "sync_for_device 0"}));
  tessaline_board_transcript_clear();
  ASSERT_TRUE(device.QBuf());
  EXPECT_EQ(Attributes(Events()),
            (Lines{"sync_offset " + std::to_string(at + kBytes - 8), "sync_size 8",
                   "sync_direction 1", "sync_for_cpu 0", "sync_for_device 1"}));
}

TEST_F(V4l2, WithoutADmaAreaNothingIsGivenToTheDriver) {
  auto& device = Add<V4l2FdUserPtr>();
  ASSERT_TRUE(device.Open("/dev/video1"));
  ASSERT_TRUE(device.SetFmt(kWidth, kHeight));
  tessaline_board_fault("udmabuf0", "mmap", 0, 1, ENOMEM);
  EXPECT_FALSE(device.ReqBufs(4));
  EXPECT_THAT(log.Take(), ElementsAre("ERROR Devices/UdmaBuf.cpp: UdmaBuf mmap failed!"));
  EXPECT_THAT(EventsOf(Events(), "video1 VIDIOC_QBUF"), IsEmpty());
  device.ClearBuf();
  EXPECT_TRUE(device.Close());
}

TEST_F(V4l2, MmapRefusalIsTold) {
  auto& device = Add<V4l2Fd>();
  ASSERT_TRUE(device.Open("/dev/video1"));
  ASSERT_TRUE(device.SetFmt(kWidth, kHeight));
  tessaline_board_fault("video1", "mmap", 1, 1, ENOMEM);
  EXPECT_FALSE(device.ReqBufs(4));
  EXPECT_THAT(log.Take(), ElementsAre("ERROR Devices/V4l2Fd.cpp: v4l2 mmap failed!"));
  device.ClearBuf();
  EXPECT_TRUE(device.Close());
}

TEST_F(V4l2, TheFactoryChoosesByFamily) {
  for (int series = -1; series <= 11; ++series) {
    const auto device = V4l2BufFactory::CreateV4l2BufBySeries(static_cast<SeriesNumber>(series));
    ASSERT_NE(device, nullptr);
    const V4l2Base& made = *device;
    if (series == kSeries24) {
      EXPECT_EQ(typeid(made), typeid(V4l2FdUserPtrSync));
    } else if (series == kSeries25) {
      EXPECT_EQ(typeid(made), typeid(V4l2FdUserPtr));
    } else {
      EXPECT_EQ(typeid(made), typeid(V4l2Fd));
    }
  }
}

TEST_F(V4l2, ADmaAreaSaysWhatItLacksAndGoesOn) {
  tessaline_board_unplug();
  UdmaBuf area(0, 4096);
  EXPECT_FALSE(area.IsMapped());
  area.ClearBuf();
  area.Sync(8, 0, UdmaBuf::kToDevice);
  area.SetSyncMode(3);
  const std::string from = "ERROR Devices/UdmaBuf.cpp: ";
  EXPECT_THAT(log.Take(),
              ElementsAre(from + "UdmaBuf mmap!", from + "UdmaBuf mmap failed!",
                          from + "sync_offset open failed!", from + "sync_size open failed!",
                          from + "sync_direction open failed!", from + "sync_for_cpu open failed!",
                          from + "sync_for_device open failed!", from + "SetSyncMode failed!"));
}

TEST_F(V4l2, ADmaAreaIsZeroAndSynchronisesInOrder) {
  {
    UdmaBuf dirty(0, 4096);
    memset(dirty.GetMappAddr(), 0xAA, 4096);
  }
  UdmaBuf area(0, 4096);
  ASSERT_TRUE(area.IsMapped());
  auto* data = static_cast<std::byte*>(area.GetMappAddr());
  EXPECT_EQ(NonZero(data, 4096), 0u);
  tessaline_board_transcript_clear();
  area.Sync(8, 4088, UdmaBuf::kToDevice);
  area.Sync(4096, 0, UdmaBuf::kFromDevice);
  area.SetSyncMode(7);
  EXPECT_EQ(Attributes(Events()),
            (Lines{"sync_offset 4088", "sync_size 8", "sync_direction 1", "sync_for_cpu 0",
                   "sync_for_device 1", "sync_offset 0", "sync_size 4096", "sync_direction 2",
                   "sync_for_cpu 1", "sync_for_device 0", "sync_mode 7"}));
}

TEST_F(V4l2, ReservedMemoryMapsAPhysicalRange) {
  ReservedMemory range(fpga::kZynqRegions.image, 4096);
  EXPECT_NE(range.GetMappAddr(), MAP_FAILED);
  tessaline_board_fault("*", "open", 0, 1, EACCES);
  ReservedMemory denied(fpga::kZynqRegions.image, 4096);
  EXPECT_EQ(denied.GetMappAddr(), MAP_FAILED);
  EXPECT_THAT(log.Take(),
              ElementsAre("ERROR Devices/ReservedMemory.cpp: ReservedMemory mmap!",
                          "ERROR Devices/ReservedMemory.cpp: ReservedMemory mmap failed!"));
}

}  // namespace
