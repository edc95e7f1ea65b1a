#include "reliability/StormTraffic.h"

#include <string.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "tessaline/tessaline.h"

namespace storm {

namespace {

// The IMX252 rejects regions at the very edge. The e2v Flash 4K keeps a region's offsets for the
// whole image of drive mode 0, which then does not fit.
unsigned region_corner = 64;

// Reads back the saved value only if the store had the time that it needs in between.
void SaveAndReadBack(unsigned i) {
  unsigned char saved[16];
  memset(saved, static_cast<int>(i % 256), sizeof saved);
  unsigned char read[sizeof saved] = {};
  ConfigSave(saved, sizeof saved);
  ConfigRead(read, sizeof read);
  if (memcmp(saved, read, sizeof saved) != 0) Fail("the settings store failed");
}

constexpr void (*kSettings[])(unsigned) = {
    [](unsigned i) { SetCollectMode(i % 2); },
    [](unsigned i) { SetLaserPower(static_cast<float>(30 + i % 40)); },
    [](unsigned i) { LedControl(i % 8); },
    [](unsigned i) { SetCmosGain(i % 3); },
    [](unsigned i) { DAWrite(i % 4096); },
    [](unsigned) { GetCpuTemp(); },
    [](unsigned i) { SetExposureTime(1, 100 + i % 100); },
    [](unsigned i) { SetROI1(region_corner, region_corner, 64, i % 2 == 0 ? 640 : 800); },
    [](unsigned) { SetDriveMode(0); },
    [](unsigned) { SetGlobalControl(0); },
    [](unsigned) { ResetFrameID(); },
    [](unsigned) {  // the notifier is off
      RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER,
                           reinterpret_cast<tessaline_event_handler>(OnTrigger));
    },
    [](unsigned) { SetGlobalControl(1); },
    [](unsigned i) { QV4l2Buf(i % 16); },
    SaveAndReadBack,
};

}  // namespace

void ChooseRegion(const char* model) {
  if (std::string_view(model).starts_with("K40")) region_corner = 0;
}

void OnTrigger(unsigned /*level*/) { GetEncoderCounter(); }

void RegisterTraffic(unsigned i) {
  SetTriSpacing(4000 + i % 100);
  SetOutWidth(i % 2, i);
  GetTriSpacing();
  GetEncoderCounter();
  SetRisThresholdValue(20 + i % 40);
}

void ChangeSettings() {
  SetCollectMode(0);
  SetGlobalControl(1);
  for (auto i = static_cast<unsigned>(getpid());; ++i) kSettings[i % std::size(kSettings)](i);
}

void Fail(const char* what) {
  std::fprintf(stderr, "interrupted_application: %s\n", what);
  _exit(EXIT_FAILURE);
}

}  // namespace storm
