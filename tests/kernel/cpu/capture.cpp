// Takes frames with the library's plain capture layer and looks at none of them, as `v4l2-ctl
// --stream-mmap` and GStreamer's fakesink do.
//
//   kernel_capture DEVICE WIDTH HEIGHT FRAMES
#include <cstdlib>

#include "tessaline/video.h"

int main(int argc, char** argv) {
  constexpr unsigned kBuffers = 4;
  if (argc != 5) return 2;
  auto* const channel =
      create_video_channel(argv[1], 0, static_cast<unsigned>(std::atoi(argv[2])),
                           static_cast<unsigned>(std::atoi(argv[3])), 0, 0, kBuffers);
  if (video_start_capture(channel) != 0) return 1;
  for (int left = std::atoi(argv[4]); left > 0; --left) {
    int result = -1;
    auto* const buffer = video_request_img_buf(channel, &result);
    if (result != 0 || video_release_img_buf(channel, buffer) != 0) return 1;
  }
  video_stop_capture(channel);
  close_video_channel(channel);
}
