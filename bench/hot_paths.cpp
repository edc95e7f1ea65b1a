// Compares each thing that the capture threads and libtessaline-profile do with a frame with a
// minimal equivalent.

#include <cstdio>

#include "DeviceManager.h"
#include "HotPaths.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

int main(int argc, char** argv) {
  const bench::Options options = bench::ReadOptions(argc, argv);
  tessaline_board_select("K3610");
  tessaline_board_set_sleep_factor(0);
  tessaline_board_transcript_enable(0);
  GetLibVersion("K3610");
  if (!VeltranoSDK::DeviceManagerHolder::Instance()->Init()) return 1;
  if (options.growth) {
    bench::PrintReorderGrowth(options);
    bench::PrintStripPassGrowth(options);
    bench::PrintProfileGrowth(options);
    return 0;
  }
  bench::PrintHeading();
  bench::PrintReorderRows(options);
  bench::PrintStripPassRows(options);
  bench::PrintProfileRows(options);
  bench::PrintWaitingRows(options);
  return 0;
}
