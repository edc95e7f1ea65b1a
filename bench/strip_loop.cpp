// Counts strip buffers for some seconds, with a handler that looks at one point of each. What
// python_loops.py compares with. Prints buffers, strips, seconds and seconds of processor time.
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace {

std::atomic<unsigned> buffers{0};
std::atomic<unsigned> strips{0};
std::atomic<std::uint64_t> rows{0};

void OnStrips(unsigned count, unsigned bytes, void* data) {
  tessaline_full_point point;
  if (bytes < sizeof(tessaline_strip_header) + sizeof point) return;
  std::memcpy(&point, static_cast<char*>(data) + sizeof(tessaline_strip_header), sizeof point);
  rows += point.row;
  strips += count;
  ++buffers;
}

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 3;
  tessaline_board_select("K3610");
  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
  tessaline_board_transcript_enable(0);
  GetLibVersion("K3610");
  RegisterEventHandler(TESSALINE_EVENT_STRIP, reinterpret_cast<tessaline_event_handler>(OnStrips));
  RegisterHardwareInit();
  SetCollectMode(0);
  OpenLaser();
  const double processor = ProcessorSeconds();
  const auto begin = std::chrono::steady_clock::now();
  SetGlobalControl(1);
  usleep(static_cast<useconds_t>(seconds * 1e6));
  const unsigned seen = buffers;
  const unsigned seen_strips = strips;
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  const double used = ProcessorSeconds() - processor;
  SetGlobalControl(0);
  CloseLaser();
  std::fprintf(stderr, "result %u %u %f %f\n", seen, seen_strips, time.count(), used);
}
