// Compares the library's frame counts with what happened to the frames.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "api/StartedBoard.h"

namespace {

using std::chrono::milliseconds;
using tessaline_test::Eventually;
using tessaline_test::ReallyWait;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Statistics = tessaline_capture_statistics;

Statistics Counted(unsigned stream) {
  Statistics statistics;
  EXPECT_EQ(TessalineGetCaptureStatistics(stream, &statistics), 0);
  return statistics;
}

bool EachFrameHasOneFate(const Statistics& s) {
  return s.dequeued == s.delivered + s.suppressed + s.released + s.malformed;
}

// What a handler does with one frame.
void DoNothing() {}
std::atomic<void (*)()> handling = DoNothing;
std::atomic<int> handled = 0;

void OnFrame(unsigned, unsigned, void*) {
  handling.load()();
  ++handled;
}

std::atomic<bool> inside = false;
std::atomic<bool> let_go = false;
void WaitInside() {
  inside = true;
  EXPECT_TRUE(Eventually([] { return let_go.load(); }));
}

class CaptureStatistics : public tessaline_test::StartedBoard {
 protected:
  void SetUp() override {
    StartedBoard::SetUp();
    tessaline_board_transcript_enable(0);
    tessaline_board_set_strips_per_buffer(1);
    for (const int event : {TESSALINE_EVENT_IMAGE, TESSALINE_EVENT_STRIP}) Register(event, true);
    ASSERT_EQ(SetTriMode(2), 0);
  }

  static void Register(int event, bool wanted) {
    RegisterEventHandler(event,
                         wanted ? reinterpret_cast<tessaline_event_handler>(OnFrame) : nullptr);
  }

  // The modes have the opposite numbers.
  static void Collect(unsigned stream) {
    ASSERT_EQ(SetCollectMode(stream == TESSALINE_STREAM_IMAGES ? 1 : 0), 0);
    ASSERT_EQ(SetGlobalControl(1), 0);
  }

  // Exposes one frame and waits until the FPGA has sent or lost it.
  static void Expose(unsigned stream) {
    const std::uint64_t before = Board(stream).frames;
    ASSERT_EQ(TricontrolSWTrigger(), 0);
    ASSERT_TRUE(Eventually([=] { return Board(stream).frames > before; }));
  }

  // Does the same, and waits until the library has finished with each frame.
  static void Capture(unsigned stream, unsigned frames) {
    for (unsigned i = 0; i < frames; ++i) {
      const std::uint64_t before = Counted(stream).dequeued;
      Expose(stream);
      ASSERT_TRUE(Eventually([=] { return Counted(stream).dequeued > before; }));
    }
  }

  static struct tessaline_board_stream_stats Board(unsigned stream) {
    struct tessaline_board_stream_stats stats {};
    tessaline_board_stream_stats(static_cast<int>(stream), &stats);
    return stats;
  }
};

class OfBothStreams : public CaptureStatistics, public ::testing::WithParamInterface<unsigned> {
 protected:
  static unsigned stream() { return GetParam(); }
  static int event() {
    return stream() == TESSALINE_STREAM_IMAGES ? TESSALINE_EVENT_IMAGE : TESSALINE_EVENT_STRIP;
  }

  void SetUp() override {
    CaptureStatistics::SetUp();
    Collect(stream());
  }
};

INSTANTIATE_TEST_SUITE_P(Api, OfBothStreams,
                         ::testing::Values(TESSALINE_STREAM_IMAGES, TESSALINE_STREAM_STRIPS),
                         [](const auto& row) { return row.param == 0 ? "Images" : "Strips"; });

// --- Outcomes of a frame

TEST_P(OfBothStreams, CountWhatAHandlerGot) {
  Capture(stream(), 3);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.dequeued, 3u);
  EXPECT_EQ(s.delivered, 3u);
  EXPECT_EQ(s.callbacks, 3u);
  EXPECT_EQ(s.ids_seen, 3u);
  EXPECT_EQ(s.suppressed + s.released + s.malformed, 0u);
  EXPECT_EQ(s.dequeue_errors + s.id_gaps + s.ids_missing + s.ids_out_of_order, 0u);
  EXPECT_EQ(handled, 3);
  EXPECT_EQ(Counted(1 - stream()).dequeued, 0u) << "the other stream";
}

TEST_P(OfBothStreams, CountWhatNobodyWasRegisteredFor) {
  Register(event(), false);
  Capture(stream(), 2);
  Register(event(), true);
  Capture(stream(), 1);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.dequeued, 3u);
  EXPECT_EQ(s.released, 2u);
  EXPECT_EQ(s.delivered, 1u);
  EXPECT_EQ(s.callbacks, 1u);
  EXPECT_EQ(s.ids_seen, 3u);
}

TEST_F(CaptureStatistics, CountImagesFromBeforeTheStopAsSuppressed) {
  Collect(TESSALINE_STREAM_IMAGES);
  handling = WaitInside;
  for (int i = 0; i < 3; ++i) Expose(TESSALINE_STREAM_IMAGES);
  ASSERT_TRUE(Eventually([] { return inside.load(); }));
  ASSERT_EQ(SetGlobalControl(0), 0);
  let_go = true;
  ASSERT_TRUE(Eventually([] { return Counted(TESSALINE_STREAM_IMAGES).dequeued == 3; }));
  const Statistics s = Counted(TESSALINE_STREAM_IMAGES);
  EXPECT_EQ(s.delivered, 1u);
  EXPECT_EQ(s.suppressed, 2u);
  EXPECT_EQ(s.callbacks, 1u);
  EXPECT_EQ(s.ids_seen, 3u);
  EXPECT_EQ(s.id_gaps, 0u);
}

// A missing handler makes no difference to an image that would be suppressed anyway.
TEST_F(CaptureStatistics, CountSuppressedImagesAsSuchWithoutAHandlerToo) {
  Collect(TESSALINE_STREAM_IMAGES);
  handling = WaitInside;
  for (int i = 0; i < 2; ++i) Expose(TESSALINE_STREAM_IMAGES);
  ASSERT_TRUE(Eventually([] { return inside.load(); }));
  ASSERT_EQ(SetGlobalControl(0), 0);
  std::thread replacer([] { Register(TESSALINE_EVENT_IMAGE, false); });
  let_go = true;
  replacer.join();
  ASSERT_TRUE(Eventually([] { return Counted(TESSALINE_STREAM_IMAGES).dequeued == 2; }));
  EXPECT_EQ(Counted(TESSALINE_STREAM_IMAGES).suppressed, 1u);
  EXPECT_EQ(Counted(TESSALINE_STREAM_IMAGES).released, 0u);
}

// The intact part of a damaged frame still reaches the handler. Its id is missing.
TEST_P(OfBothStreams, CountDamagedFrames) {
  tessaline_board_frame_fault(static_cast<int>(stream()), TESSALINE_BOARD_FRAME_CORRUPT, 1, 1);
  Capture(stream(), 3);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.dequeued, 3u);
  EXPECT_EQ(s.delivered, 2u);
  EXPECT_EQ(s.malformed, 1u);
  EXPECT_EQ(s.callbacks, 3u);
  EXPECT_EQ(s.ids_seen, 2u);
  EXPECT_EQ(s.id_gaps, 1u);
  EXPECT_EQ(s.ids_missing, 1u);
  EXPECT_EQ(s.ids_out_of_order, 0u);
}

TEST_P(OfBothStreams, CountDamagedFramesAsSuchWithoutAHandlerToo) {
  Register(event(), false);
  tessaline_board_frame_fault(static_cast<int>(stream()), TESSALINE_BOARD_FRAME_CORRUPT, 0, 1);
  Capture(stream(), 1);
  EXPECT_EQ(Counted(stream()).malformed, 1u);
  EXPECT_EQ(Counted(stream()).released, 0u);
}

// --- Frames that do not arrive

TEST_P(OfBothStreams, CountFailuresOfTheDevice) {
  tessaline_board_fault(stream() == TESSALINE_STREAM_IMAGES ? "video0" : "video1", "VIDIOC_DQBUF",
                        0, 3, EIO);
  Expose(stream());  // the call that waits for this frame may have started before the fault
  ASSERT_TRUE(Eventually([] { return Counted(stream()).dequeued == 1; }));
  ASSERT_TRUE(Eventually([] { return Counted(stream()).dequeue_errors == 3; }));
  Capture(stream(), 1);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.dequeue_errors, 3u);
  EXPECT_EQ(s.dequeued, 2u);
  EXPECT_EQ(s.delivered, 2u);
  EXPECT_EQ(s.id_gaps, 0u);
}

TEST_P(OfBothStreams, CountFramesThatGotLostOnTheWay) {
  Capture(stream(), 2);
  tessaline_board_frame_fault(static_cast<int>(stream()), TESSALINE_BOARD_FRAME_LOST, 0, 3);
  for (int i = 0; i < 3; ++i) Expose(stream());
  Capture(stream(), 1);
  tessaline_board_frame_fault(static_cast<int>(stream()), TESSALINE_BOARD_FRAME_LOST, 0, 1);
  Expose(stream());
  Capture(stream(), 1);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.dequeued, 4u);
  EXPECT_EQ(s.delivered, 4u);
  EXPECT_EQ(s.ids_seen, 4u);
  EXPECT_EQ(s.id_gaps, 2u);
  EXPECT_EQ(s.ids_missing, 4u);
}

// There are more frames than the slow handler leaves buffers for. The board counts the lost frames.
TEST_P(OfBothStreams, AgreeWithTheBoardAboutWhatASlowHandlerCosts) {
  handling = [] { ReallyWait(milliseconds(10)); };
  ASSERT_EQ(SetTriSpacing(1000), 0);
  ASSERT_EQ(SetTriMode(0), 0);
  ASSERT_TRUE(Eventually([] { return Counted(stream()).ids_missing > 20; }));
  ASSERT_EQ(SetGlobalControl(0), 0);
  ASSERT_EQ(SetTriMode(2), 0);
  handling = DoNothing;
  const auto all_taken = [] { return Counted(stream()).dequeued == Board(stream()).buffers; };
  ASSERT_TRUE(Eventually(all_taken));
  ASSERT_EQ(SetGlobalControl(1), 0);
  Capture(stream(), 3);  // the last losses only show with the next frame
  ASSERT_TRUE(Eventually(all_taken));
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.ids_seen, Board(stream()).delivered);
  EXPECT_EQ(s.ids_missing, Board(stream()).lost);
  EXPECT_TRUE(EachFrameHasOneFate(s));
}

TEST_F(CaptureStatistics, TakeAChangeOfTheStreamOrOfTheIdsForNoLoss) {
  for (int round = 0; round < 2; ++round) {
    for (const unsigned stream : {TESSALINE_STREAM_IMAGES, TESSALINE_STREAM_STRIPS}) {
      Collect(stream);
      Capture(stream, 2);
    }
  }
  ASSERT_EQ(SetGlobalControl(0), 0);
  ASSERT_EQ(ResetFrameID(), 0);
  Collect(TESSALINE_STREAM_STRIPS);
  Capture(TESSALINE_STREAM_STRIPS, 2);
  for (const unsigned stream : {TESSALINE_STREAM_IMAGES, TESSALINE_STREAM_STRIPS}) {
    const Statistics s = Counted(stream);
    EXPECT_EQ(s.ids_seen, stream == TESSALINE_STREAM_IMAGES ? 4u : 6u);
    EXPECT_EQ(s.id_gaps, 0u);
    EXPECT_EQ(s.ids_out_of_order, 0u);
  }
}

// A register write can make the FPGA restart its count.
TEST_F(CaptureStatistics, FollowIdsThatBeginAnewUnannounced) {
  Collect(TESSALINE_STREAM_STRIPS);
  Capture(TESSALINE_STREAM_STRIPS, 3);
  const auto& reset = tessaline_test::fpga::kReg.FRAME_ID_RESET;
  for (const unsigned level : {1u, 0u}) {
    fpga_write_addr(
        tessaline_test::fpga::BaseAddress(reset.block, tessaline_test::fpga::kZynqRegions),
        reset.Index(), level);
  }
  Capture(TESSALINE_STREAM_STRIPS, 3);
  EXPECT_EQ(Counted(TESSALINE_STREAM_STRIPS).ids_out_of_order, 2u);
  EXPECT_EQ(Counted(TESSALINE_STREAM_STRIPS).id_gaps, 0u);
}

// --- Time

TEST_P(OfBothStreams, TellHowLongTheHandlerTook) {
  constexpr std::uint64_t kNanoseconds = 20'000'000;
  Capture(stream(), 3);
  const Statistics before = Counted(stream());
  handling = [] { ReallyWait(milliseconds(20)); };
  Capture(stream(), 1);
  handling = DoNothing;
  Capture(stream(), 1);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.callbacks, 5u);
  EXPECT_GE(s.callback_max_ns, kNanoseconds);
  EXPECT_GE(s.callback_total_ns, before.callback_total_ns + kNanoseconds);
  EXPECT_LE(s.callback_max_ns, s.callback_total_ns);
  EXPECT_EQ(s.callback_mean_ns, s.callback_total_ns / 5);
}

// --- Reset, and the moment of a snapshot

bool IsZero(const Statistics& s) {
  const Statistics zero{};
  return std::memcmp(&s, &zero, sizeof s) == 0;
}

TEST_P(OfBothStreams, StartAgainFromZeroWhenReset) {
  Capture(stream(), 3);
  ASSERT_EQ(TessalineResetCaptureStatistics(1 - stream()), 0);
  EXPECT_EQ(Counted(stream()).dequeued, 3u) << "the other stream was reset";
  ASSERT_EQ(TessalineResetCaptureStatistics(stream()), 0);
  EXPECT_TRUE(IsZero(Counted(stream())));
  Capture(stream(), 2);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.dequeued, 2u);
  EXPECT_EQ(s.delivered, 2u);
  EXPECT_EQ(s.callbacks, 2u);
  EXPECT_EQ(s.ids_seen, 2u);
  EXPECT_EQ(s.id_gaps, 0u) << "the ids went on";
}

TEST_P(OfBothStreams, NoticeALossAcrossAReset) {
  Capture(stream(), 1);
  tessaline_board_frame_fault(static_cast<int>(stream()), TESSALINE_BOARD_FRAME_LOST, 0, 2);
  for (int i = 0; i < 2; ++i) Expose(stream());
  ASSERT_EQ(TessalineResetCaptureStatistics(stream()), 0);
  Capture(stream(), 1);
  EXPECT_EQ(Counted(stream()).ids_missing, 2u);
}

TEST_P(OfBothStreams, LeaveTheFrameInTheHandlerToTheTimeBeforeTheReset) {
  Capture(stream(), 1);
  handling = WaitInside;
  Expose(stream());
  ASSERT_TRUE(Eventually([] { return inside.load(); }));
  EXPECT_EQ(Counted(stream()).dequeued, 1u) << "the one in the handler does not count yet";
  ASSERT_EQ(TessalineResetCaptureStatistics(stream()), 0);
  EXPECT_TRUE(IsZero(Counted(stream())));
  let_go = true;
  ASSERT_TRUE(Eventually([] { return handled == 2; }));
  handling = DoNothing;
  Capture(stream(), 1);
  const Statistics s = Counted(stream());
  EXPECT_EQ(s.dequeued, 1u);
  EXPECT_EQ(s.delivered, 1u);
  EXPECT_EQ(s.callbacks, 1u);
}

TEST_P(OfBothStreams, CanBeAskedAndResetByTheHandler) {
  handling = [] {
    EXPECT_EQ(Counted(stream()).dequeued, static_cast<std::uint64_t>(handled));
    if (handled == 2) {
      EXPECT_EQ(TessalineResetCaptureStatistics(stream()), 0);
      EXPECT_TRUE(IsZero(Counted(stream())));
    }
  };
  for (int i = 0; i < 3; ++i) {
    Expose(stream());
    ASSERT_TRUE(Eventually([=] { return handled == i + 1; }));
  }
  handling = DoNothing;
  Capture(stream(), 1);
  EXPECT_EQ(Counted(stream()).dequeued, 1u);
}

// Frames with every result arrive at full speed, while other threads read and reset the counts.
TEST_P(OfBothStreams, AddUpInEverySnapshot) {
  constexpr std::uint64_t kFramesEach = 150;
  std::atomic<bool> done{false};
  std::vector<std::thread> others;
  for (int i = 0; i < 2; ++i) {
    others.emplace_back([&] {
      while (!done) {
        const Statistics s = Counted(stream());
        const bool sound = EachFrameHasOneFate(s) && s.callbacks <= s.dequeued &&
                           s.callbacks >= s.delivered && s.callback_max_ns <= s.callback_total_ns &&
                           s.ids_missing >= s.id_gaps;
        if (!sound) {
          ADD_FAILURE() << s.dequeued << " = " << s.delivered << " + " << s.suppressed << " + "
                        << s.released << " + " << s.malformed << "? calls " << s.callbacks;
          return;
        }
      }
    });
  }
  others.emplace_back([&] {
    while (!done) {
      ReallyWait(milliseconds(3));
      EXPECT_EQ(TessalineResetCaptureStatistics(stream()), 0);
    }
  });
  // Every fourth frame is damaged, and every second part of the run has no handler.
  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
  ASSERT_EQ(SetTriMode(0), 0);
  for (unsigned part = 0; part < 4; ++part) {
    Register(event(), part % 2 == 0);
    const std::uint64_t until = Board(stream()).delivered + kFramesEach;
    while (Board(stream()).delivered < until) {
      tessaline_board_clear_faults();
      tessaline_board_frame_fault(static_cast<int>(stream()), TESSALINE_BOARD_FRAME_CORRUPT, 3, 1);
      const std::uint64_t next = Board(stream()).delivered + 4;
      ASSERT_TRUE(Eventually([=] { return Board(stream()).delivered >= next; }));
    }
  }
  ASSERT_EQ(SetGlobalControl(0), 0);
  done = true;
  for (std::thread& other : others) other.join();
}

// --- Rejected calls

TEST_F(CaptureStatistics, AreRefusedForNoStreamAndNoPlace) {
  Statistics statistics{};
  statistics.dequeued = 77;
  EXPECT_EQ(TessalineGetCaptureStatistics(2, &statistics), -1);
  EXPECT_EQ(statistics.dequeued, 77u);
  EXPECT_EQ(TessalineGetCaptureStatistics(TESSALINE_STREAM_STRIPS, nullptr), -1);
  EXPECT_EQ(TessalineResetCaptureStatistics(0xFFFFFFFF), -1);
  EXPECT_THAT(Errors(), ElementsAre(HasSubstr("TessalineGetCaptureStatistics: no such stream"),
                                    HasSubstr("TessalineGetCaptureStatistics: there is no place"),
                                    HasSubstr("TessalineResetCaptureStatistics: no such stream")));
}

}  // namespace
