// Plain capture without memory for its records.
#include <gmock/gmock.h>

#include "support/BoardFixture.h"
#include "support/FailingAllocations.h"
#include "tessaline/video.h"

namespace tessaline_test {
namespace {

using ::testing::ExitedWithCode;
using ::testing::MatchesRegex;

class PlainWithoutMemory : public BoardFixture {
 protected:
  PlainWithoutMemory() : BoardFixture("K3610") {}

  static void Create(int failing_allocation, unsigned buffers) {
    FailLibraryAllocation(failing_allocation);
    create_video_channel("/dev/video0", 0, 64, 64, 0, 7, buffers);
  }
};

#define AT_VIDEO_CPP "image/video\\.cpp\\([1-9][0-9]*\\) "

TEST_F(PlainWithoutMemory, ThereIsNoChannel) {
  EXPECT_EXIT(Create(1, 2), ExitedWithCode(255), "^malloc: Cannot allocate memory\n$");
  EXPECT_THAT(Printed(), MatchesRegex(AT_VIDEO_CPP));
}

TEST_F(PlainWithoutMemory, ThereAreNoBuffers) {
  EXPECT_EXIT(Create(2, 2), ExitedWithCode(1), "^calloc: Cannot allocate memory\n$");
  EXPECT_EQ(Printed(), "");
}

// Some C libraries return null for an allocation of size 0.
TEST_F(PlainWithoutMemory, AChannelOfNoBuffersHasNoArray) {
  EXPECT_EXIT(Create(2, 0), ExitedWithCode(255), "^v4l2_reqbufs: ");
  EXPECT_THAT(Printed(), MatchesRegex(AT_VIDEO_CPP));
}

}  // namespace
}  // namespace tessaline_test
