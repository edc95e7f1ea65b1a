#include <atomic>

#include "api/InterruptedChild.h"
#include "api/StartedBoard.h"
#include "support/LibraryAllocations.h"

namespace {

using tessaline_test::BoardFixture;
using tessaline_test::Eventually;

std::atomic<std::uint64_t> frames{0};

void OnFrames(unsigned, unsigned, void*) { ++frames; }

class Allocation : public BoardFixture {
 protected:
  Allocation() : BoardFixture("K3610") {}

  // Counts the library's heap allocations while it delivers `wanted` frames, after as many frames
  // of warm-up.
  static std::uint64_t During(std::uint64_t wanted) {
    EXPECT_TRUE(Eventually([=] { return frames >= wanted; }));
    const std::uint64_t before = LibraryAllocations();
    const std::uint64_t first = frames;
    EXPECT_TRUE(Eventually([=] { return frames >= first + wanted; }));
    return LibraryAllocations() - before;
  }
};

class NoneInTheSteadyState : public Allocation, public ::testing::WithParamInterface<unsigned> {};

TEST_P(NoneInTheSteadyState, OfTheCaptureThreads) {
  ASSERT_TRUE(FindLibraryCode());
  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
  tessaline_board_set_strips_per_buffer(1);
  ASSERT_EQ(GetLibVersion("K3610"), 41915);
  log_set_quiet(true);
  for (const int event : {TESSALINE_EVENT_IMAGE, TESSALINE_EVENT_STRIP}) {
    RegisterEventHandler(event, reinterpret_cast<tessaline_event_handler>(OnFrames));
  }
  ASSERT_EQ(RegisterHardwareInit(), 0);
  EXPECT_GT(LibraryAllocations(), 0u) << "start-up allocates; the counter counts nothing";
  ASSERT_EQ(SetCollectMode(GetParam()), 0);
  ASSERT_EQ(SetGlobalControl(1), 0);
  EXPECT_EQ(During(50), 0u);
}

INSTANTIATE_TEST_SUITE_P(CollectModes, NoneInTheSteadyState, ::testing::Values(0u, 1u));

// The interrupted thread may be inside the heap itself.
class NoneAtTheEnd : public ::testing::TestWithParam<const char*> {};

TEST_P(NoneAtTheEnd, OfTheSigintHandlerNorOfSwitchingTheLaserOff) {
  ASSERT_TRUE(FindLibraryCode());
  const auto outcome = tessaline_test::InAChild([] {
    static std::uint64_t before = 0;
    tessaline_board_select(GetParam());
    tessaline_board_set_sleep_factor(0);
    log_set_quiet(true);
    GetLibVersion(GetParam());
    if (RegisterHardwareInit() != 0) _exit(99);
    atexit([] {
      CloseLaser();
      _exit(LibraryAllocations() == before ? 7 : 8);
    });
    before = LibraryAllocations();
    raise(SIGINT);
  });
  tessaline_test::ExpectExit(outcome, 7);
}

INSTANTIATE_TEST_SUITE_P(OfEachCaptureDevice, NoneAtTheEnd,
                         ::testing::Values("K3610", "K3920", "K4010"));

}  // namespace
