/* The public headers are C: this file is compiled as C11, and its object links. */
#include "tessaline/tessaline.h"

/* Again, and one by one in another order: each stands alone. */
#include "tessaline/image_processing.h"
#include "tessaline/outputs.h"
#include "tessaline/peripherals.h"
#include "tessaline/sensor.h"
#include "tessaline/startup.h"
#include "tessaline/strip.h"
#include "tessaline/trigger.h"

static void OnStrips(unsigned int strips, unsigned int bytes, void* data) {
  (void)strips;
  (void)bytes;
  (void)data;
}

int main(void) {
  RegisterEventHandler(TESSALINE_EVENT_STRIP, (tessaline_event_handler)OnStrips);
  return GetLibVersion("K3610") == 41915 ? 0 : 1;
}
