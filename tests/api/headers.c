/* A C program against every public C header: it compiles as C11, links, and runs
 * without any hardware. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "tessaline/tessaline.h"

_Static_assert(sizeof(tessaline_image_buffer) == 176, "the record hosts know");
_Static_assert(offsetof(tessaline_image_buffer, descriptor) == 32, "the record hosts know");
_Static_assert(offsetof(tessaline_image_buffer, in_use) == 120, "the record hosts know");

/* The event's fields, in the order that sinks know. */
_Static_assert(offsetof(log_Event, ap) == 0, "arguments first");
_Static_assert(offsetof(log_Event, fmt) == sizeof(va_list), "then the format");
_Static_assert(offsetof(log_Event, file) == offsetof(log_Event, fmt) + sizeof(char*), "file");
_Static_assert(offsetof(log_Event, time) == offsetof(log_Event, file) + sizeof(char*), "time");
_Static_assert(offsetof(log_Event, udata) == offsetof(log_Event, time) + sizeof(void*), "udata");
_Static_assert(offsetof(log_Event, line) == offsetof(log_Event, udata) + sizeof(void*), "line");
_Static_assert(offsetof(log_Event, level) == offsetof(log_Event, line) + sizeof(int), "level");

/* Fourteen numbers without a gap, for hosts in other languages. */
_Static_assert(sizeof(struct tessaline_capture_statistics) == 14 * 8, "no other record");

static void OnStrips(unsigned int strips, unsigned int bytes, void* data) {
  (void)strips;
  (void)bytes;
  (void)data;
}

static int failures = 0;

static void Expect(int holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "not so: %s\n", what);
  ++failures;
}

/* What each header's functions answer before start-up. */
int main(void) {
  unsigned char settings[16];
  struct tessaline_capture_statistics statistics;
  log_set_quiet(true);
  RegisterEventHandler(TESSALINE_EVENT_STRIP, (tessaline_event_handler)OnStrips);
  Expect(GetLibVersion("K3610") == 41915, "startup.h");
  Expect(strcmp(log_level_string(TESSALINE_LOG_ERROR), "ERROR") == 0, "log.h");
  Expect(pthread_mutex_trylock(&fpga_contol) == 0, "fpga.h");
  Expect(pthread_mutex_unlock(&fpga_contol) == 0, "fpga.h");
  Expect(SetTriSpacing(1000) == -1, "trigger.h");
  Expect(SetOutPolarity(0, 1) == -1, "outputs.h");
  Expect(SetExposureNum(1) == -1, "sensor.h");
  Expect(TessalineGetCaptureStatistics(TESSALINE_STREAM_STRIPS, &statistics) == 0,
         "capture_statistics.h");
  Expect(GetStripWidthMax() == 0xFFFFFFFF, "strip.h");
  Expect(SetBinEnable(1) == -1, "image_processing.h");
  Expect(GetDigitalPOTResolution() == 0xFFFFFFFF, "peripherals.h");
  Expect(ConfigSave(settings, 0) == -1, "eeprom.h");
  Expect(v4l2_open("/dev/no-such-video") == -1, "video.h");
  return failures;
}
