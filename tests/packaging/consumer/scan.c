/* An application in C: succeeds once ten strip buffers have come whole. */
#include <stdio.h>
#include <tessaline/tessaline.h>
#include <unistd.h>

static void OnStrips(unsigned int strips, unsigned int bytes, void* data) {
  (void)strips;
  (void)bytes;
  (void)data;
}

int main(int argc, char** argv) {
  struct tessaline_capture_statistics statistics = {0};
  if (argc < 2) return 2;
  GetLibVersion(argv[1]);
  RegisterEventHandler(TESSALINE_EVENT_STRIP, (tessaline_event_handler)OnStrips);
  if (RegisterHardwareInit() != 0) return 1;
  OpenLaser();
  SetCollectMode(0);
  SetTriMode(0);
  SetGlobalControl(1);
  for (int i = 0; i < 2000 && statistics.delivered < 10; ++i) {
    usleep(10000);
    TessalineGetCaptureStatistics(TESSALINE_STREAM_STRIPS, &statistics);
  }
  SetGlobalControl(0);
  CloseLaser();
  printf("%s: %llu strips\n", argv[1], (unsigned long long)statistics.ids_seen);
  return statistics.delivered < 10 ? 1 : 0;
}
