// Takes one camera image per software trigger. Prints the brightest row of each image and the time
// of its exposure.
#include <tessaline/tessaline.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <queue>

#include "Laser.h"

namespace {

struct Image {
  std::uint64_t frame_id, time_stamp;
  unsigned int width, height, brightest_row;
};

// What the capture thread passes to the main thread.
std::mutex mutex;
std::condition_variable arrived;
std::queue<Image> images;

// Runs on the capture thread. Use the pixels only here, because they are in the driver's memory.
void OnImage(unsigned int width, unsigned int height, void* data) {
  const auto* pixels = static_cast<const unsigned char*>(data);
  const std::size_t size = std::size_t{width} * height;
  tessaline_image_header header;
  std::memcpy(&header, pixels + size, sizeof header);
  Image image{header.frame_id, header.time_stamp, width, height, 0};
  const auto brightest = std::max_element(pixels, pixels + size) - pixels;
  image.brightest_row = static_cast<unsigned int>(static_cast<std::size_t>(brightest) / width);
  {
    const std::lock_guard lock(mutex);
    images.push(image);
  }
  arrived.notify_one();
}

}  // namespace

int main(int argc, char** argv) {
  GetLibVersion(argc > 1 ? argv[1] : "K3610");
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  if (RegisterHardwareInit() != 0) return 1;

  SetCollectMode(1);  // images
  SetTriMode(2);      // triggers from the external input (unused here) and by software
  laser_on();
  SetGlobalControl(1);
  int missing = 0;
  for (int n = 0; n < 5; ++n) {
    TricontrolSWTrigger();
    std::unique_lock lock(mutex);
    if (!arrived.wait_for(lock, std::chrono::seconds(2), [] { return !images.empty(); })) {
      std::puts("no image within two seconds");
      ++missing;
      continue;
    }
    const Image image = images.front();
    images.pop();
    std::printf("frame %llu: %u x %u, brightest in row %u, exposed %.3f s after power-up\n",
                static_cast<unsigned long long>(image.frame_id), image.width, image.height,
                image.brightest_row, static_cast<double>(image.time_stamp) * 20e-9);
  }
  SetGlobalControl(0);
  laser_off();
  return missing != 0;
}
