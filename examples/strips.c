/* The smallest complete application. Takes laser lines for five seconds. Prints how many arrived,
 * their frame ids and the mean number of points. */
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <tessaline/tessaline.h>
#include <unistd.h>

#include "Laser.h"

static atomic_ullong strips_seen, points_seen, first_id, last_id;

/* Runs on the library's capture thread. The memory goes back to the driver on return, so copy what
 * you need later. */
static void on_strips(unsigned int strips, unsigned int bytes, void* data) {
  const unsigned char* at = data;
  (void)bytes;
  for (unsigned int i = 0; i < strips; ++i) {
    struct tessaline_strip_header strip;
    memcpy(&strip, at, sizeof strip);
    if (atomic_fetch_add(&strips_seen, 1) == 0) atomic_store(&first_id, strip.frame_id);
    atomic_store(&last_id, strip.frame_id);
    atomic_fetch_add(&points_seen, strip.point_count);
    /* 8 bytes per point, except on products with arm_rebuild in the model code. */
    at += sizeof strip + sizeof(struct tessaline_full_point) * strip.point_count;
  }
}

int main(int argc, char** argv) {
  const char* model = argc > 1 ? argv[1] : "K3610";
  GetLibVersion(model);
  RegisterEventHandler(TESSALINE_EVENT_STRIP, (tessaline_event_handler)on_strips);
  if (RegisterHardwareInit() != 0) {
    fprintf(stderr, "%s cannot be started\n", model);
    return 1;
  }

  ResetFrameID();
  SetCollectMode(0);   /* laser lines; 1: images */
  SetTriMode(0);       /* by the timer, ... */
  SetTriSpacing(4000); /* ... every 4000 microseconds */
  if (laser_on() != 0) fprintf(stderr, "the laser stays dark\n");
  SetGlobalControl(1);
  for (unsigned left = 5; left > 0;) left = sleep(left); /* Ctrl-Z cuts a sleep short */
  SetGlobalControl(0);
  laser_off();

  const unsigned long long strips = atomic_load(&strips_seen);
  printf("%llu strips, frames %llu to %llu, %llu points each\n", strips, atomic_load(&first_id),
         atomic_load(&last_id), strips ? atomic_load(&points_seen) / strips : 0);
  return strips == 0;
}
