// The failures of the plain capture functions that end the process.
#include <errno.h>
#include <gmock/gmock.h>

#include "PlainCapture.h"

namespace tessaline_test {
namespace {

using ::testing::ExitedWithCode;
using ::testing::MatchesRegex;

struct End {
  const char* name;
  const char* operation;  // the operation that fails, or nullptr
  unsigned skip;
  void (*call)();
  int status;
  const char* told;     // standard error stream, a regular expression
  const char* printed;  // standard output, a regular expression
};

void PrintTo(const End& row, std::ostream* out) { *out << row.name; }

void Create() { create_video_channel(kDevice, 0, 64, 64, 0, kTag, 2); }

tessaline_video_channel* volatile kept = nullptr;  // reachable to the end of the process

void CreateAndSwitch(int (*switch_stream)(tessaline_video_channel*)) {
  kept = create_video_channel(kDevice, 0, 64, 64, 0, kTag, 2);
  switch_stream(kept);
}

class PlainEnd : public PlainCapture, public ::testing::WithParamInterface<End> {};

TEST_P(PlainEnd, TellsTheReasonAndTheStatus) {
  const End& row = GetParam();
  if (row.operation != nullptr) Fail(row.operation, EIO, row.skip);
  EXPECT_EXIT(row.call(), ExitedWithCode(row.status), row.told);
  EXPECT_THAT(Printed(), MatchesRegex(row.printed));
}

#define AT_VIDEO_CPP "image/video\\.cpp\\([1-9][0-9]*\\) "

INSTANTIATE_TEST_SUITE_P(
    SetUps, PlainEnd,
    ::testing::Values(
        End{"NoSuchDevice", nullptr, 0,
            [] { create_video_channel(kNowhere, 0, 64, 64, 0, kTag, 2); }, 255,
            "^v4l2_open: No such file or directory\n$",
            "v4l2_open failed: No such file or directory\n" AT_VIDEO_CPP},
        End{"NullDevice", nullptr, 0, [] { create_video_channel(nullptr, 0, 64, 64, 0, kTag, 2); },
            255, "^v4l2_open: Bad address\n$", "v4l2_open failed: Bad address\n" AT_VIDEO_CPP},
        End{"NoAnswer", "VIDIOC_QUERYCAP", 0, Create, 255,
            "^Setting Pixel Format: Input/output error\nv4l2_open: Input/output error\n$",
            AT_VIDEO_CPP},
        End{"NoFormat", "VIDIOC_S_FMT", 0, Create, 255, "^v4l2_setfmt: Input/output error\n$",
            "VIDIOC_S_FMT failed: Input/output error \\(5\\)\n" AT_VIDEO_CPP},
        End{"NoBuffers", "VIDIOC_REQBUFS", 0, Create, 1,
            "^Requesting Buffer: Input/output error\n$", ""},
        End{"BufferUnknown", "VIDIOC_QUERYBUF", 1, Create, 1,
            "^Querying Buffer: Input/output error\n$", ""},
        End{"BufferNotMapped", "mmap", 1, Create, 1, "^mmap: Input/output error\n$", ""},
        End{"BufferNotQueued", "VIDIOC_QBUF", 1, Create, 1, "^Queue Buffer: Input/output error\n$",
            ""},
        End{"NoStart", "VIDIOC_STREAMON", 0, [] { CreateAndSwitch(video_start_capture); }, 255,
            "^v4l2_streamon: Input/output error\n$",
            "VIDIOC_STREAMON failed: Input/output error \\(5\\)" AT_VIDEO_CPP},
        End{"NoStop", "VIDIOC_STREAMOFF", 0, [] { CreateAndSwitch(video_stop_capture); }, 255,
            "^v4l2_streamoff: Input/output error\n$",
            "VIDIOC_STREAMOFF failed: Input/output error \\(5\\)" AT_VIDEO_CPP}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace tessaline_test
