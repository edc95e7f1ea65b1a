// The data path of FpgaLogic: stream switches, collect and strip data modes, and their counters.

#include <array>
#include <cstdio>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/fpga/FpgaLogicUnit.h"
#include "log/Log.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

using fpga::Block;
using fpga::kStreamSwitchPortOff;
using fpga::StreamSwitchPort;

// The first switch sends the sensor's data to the laser-line extraction (port 0) or past it (port
// 1); the second sends one of the two to memory.
constexpr Block kSensorSwitch = Block::kImage2;
constexpr Block kMemorySwitch = Block::kImage4;

constexpr const char* kSwitchError = "SetEnableSignal error";
constexpr const char* kModeError = "SetCollectMode error";

struct Setting {
  fpga::Register reg;
  unsigned int value;
};

// The writes that route one collect mode, in their order, and its exposure delta.
struct Route {
  std::array<Setting, 4> settings;
  unsigned int exposure_delta;
};

// Indexed by CollectMode.
constexpr std::array kRoutes{
    Route{{{{StreamSwitchPort(kSensorSwitch, 0), 0},
            {StreamSwitchPort(kSensorSwitch, 1), kStreamSwitchPortOff},
            {fpga::kReg.COLLECT_MODE, kCollectLaserLine},
            {StreamSwitchPort(kMemorySwitch, 0), 0}}},
          1},
    Route{{{{StreamSwitchPort(kSensorSwitch, 0), kStreamSwitchPortOff},
            {StreamSwitchPort(kSensorSwitch, 1), 0},
            {fpga::kReg.COLLECT_MODE, kCollectImage},
            {StreamSwitchPort(kMemorySwitch, 0), 1}}},
          6000},
};

}  // namespace

bool FpgaLogic::SwitchOffPorts(Block stream_switch, std::size_t first) {
  for (std::size_t port = first; port < fpga::kStreamSwitchPorts; ++port) {
    if (!WriteOrTell(StreamSwitchPort(stream_switch, port), kStreamSwitchPortOff, kSwitchError)) {
      return false;
    }
  }
  return true;
}

bool FpgaLogic::CommitSwitch(Block stream_switch) {
  return WriteOrTell(fpga::StreamSwitchControl(stream_switch), fpga::kStreamSwitchCommit,
                     kSwitchError);
}

bool FpgaLogic::EnableCollectModeSignal() {
  Trace(__func__);
  const bool routed =
      WriteOrTell(StreamSwitchPort(kSensorSwitch, 0), kStreamSwitchPortOff, kSwitchError) &&
      WriteOrTell(StreamSwitchPort(kSensorSwitch, 1), 0, kSwitchError) &&
      SwitchOffPorts(kSensorSwitch, 2) &&
      WriteOrTell(fpga::kReg.COLLECT_MODE, kCollectImage, kModeError) &&
      CommitSwitch(kSensorSwitch) &&
      WriteOrTell(StreamSwitchPort(kMemorySwitch, 0), 1, kModeError) &&
      SwitchOffPorts(kMemorySwitch, 1) && CommitSwitch(kMemorySwitch);
  if (routed) collect_mode_ = kCollectImage;
  return routed;
}

bool FpgaLogic::IsCollectMode(CollectMode mode) { return mode < kRoutes.size(); }

bool FpgaLogic::SetCollectMode(CollectMode mode) {
  Trace(__func__);
  if (!IsCollectMode(mode)) {
    puts("SetCollectMode error mode error");
    return false;
  }
  const Route& route = kRoutes[mode];
  for (const Setting& setting : route.settings) {
    if (!WriteOrTell(setting.reg, setting.value, kModeError)) return false;
  }
  if (!SetExposureDelta(route.exposure_delta)) {
    puts(kModeError);
    return false;
  }
  collect_mode_ = mode;

  constexpr unsigned int kSettle = 1000;
  if (!CommitSwitch(kSensorSwitch) || !CommitSwitch(kMemorySwitch)) return false;
  Pause(kSettle);
  return true;
}

bool FpgaLogic::SetExposureDelta(unsigned int delta) {
  Unit unit(*this,
            {{Unit::kRead, fpga::kReg.EXPOSURE_NUM}, {Unit::kWrite, fpga::kReg.EXPOSURE_NUM}});
  const unsigned int exposures = unit.Read(fpga::kReg.EXPOSURE_NUM);
  return exposures != kFailed &&
         unit.Write(fpga::kReg.EXPOSURE_NUM, fpga::kField.exposure_delta.In(exposures, delta)) !=
             kFailed;
}

bool FpgaLogic::SetCollectMode2(CollectMode mode) {
  Write(fpga::kReg.COLLECT_MODE, mode);
  return true;
}

bool FpgaLogic::SetStripDataMode(StripSelectMode mode) {
  Trace(__func__);
  return Write(fpga::kReg.STRIP_DATA_MODE, mode) != kFailed;
}

unsigned int FpgaLogic::GetStripDataMode() const {
  Trace(__func__);
  return Read(fpga::kReg.STRIP_DATA_MODE);
}

bool FpgaLogic::ResetFrameID() {
  Trace(__func__);
  PulseWord(fpga::kReg.FRAME_ID_RESET);
  return true;
}

unsigned int FpgaLogic::GetCallbackLostNum() const {
  Trace(__func__);
  return Read(fpga::kReg.CALLBACK_LOST_NUM);
}

bool FpgaLogic::ResetCallbackLostNum() {
  Trace(__func__);
  PulseWord(fpga::kReg.CALLBACK_LOST_RESET);
  return false;
}

std::pair<bool, unsigned int> FpgaLogic::GetStripDelay() const {
  Trace(__func__);
  const unsigned int delay = Read(fpga::kReg.STRIP_DELAY);
  if (delay == kFailed) {
    puts("GetStripDelay error");
    return {false, 0};
  }
  return {false, delay};
}

}  // namespace VeltranoSDK
