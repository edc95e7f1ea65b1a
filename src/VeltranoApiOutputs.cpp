#include "Devices/fpga/FpgaLogic.h"
#include "Devices/peripheral/DaChip.h"
#include "Runnable/DAArrivedNotifier.h"
#include "VeltranoApiCall.h"
#include "VeltranoApiNotifier.h"
#include "tessaline/outputs.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

}  // namespace

extern "C" {

int SetOutWidth(unsigned int channel, unsigned int width) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetOutWidth, channel, width);
}

unsigned int GetOutWidth(unsigned int channel) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetOutWidth, channel);
}

int SetOutEvent(unsigned int channel, unsigned int event) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetOutEvent, channel, event);
}

unsigned int GetOutEvent(unsigned int channel) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetOutEvent, channel);
}

int SetOutMode(unsigned int channel, unsigned int mode) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetOutMode, channel, mode);
}

unsigned int GetOutMode(unsigned int channel) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetOutMode, channel);
}

int SetDigitalOutputEnState(unsigned int channel, unsigned int state) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetDigitalOutputEnState, channel, state);
}

int SetOutPolarity(unsigned int channel, unsigned int polarity) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetOutPolarity, channel, polarity);
}

int OutputSWTrigger(unsigned int channel) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::DigitalOutputSWTrigger, channel);
}

int WRFifo(unsigned int channel) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::WRFifo, channel);
}

int SetExtTriDelayStandard(unsigned int channel, unsigned int standard) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetExtTriDelayStandard, channel, standard);
}

int SetOutDelayEn(unsigned int channel, unsigned int state) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetOutDelayEn, channel, state);
}

unsigned int GetOutDelayEn(unsigned int channel) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetOutDelayEn, channel);
}

int SetOutDelay(unsigned int channel, uint64_t delay) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetOutDelay, channel, delay);
}

uint64_t GetOutDelay(unsigned int channel) {
  return Forward<uint64_t>(__func__, kFpga, &FpgaLogic::GetOutDelay, channel);
}

int SetDAOutputDelay(unsigned int delay) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetDAOutputDelay, delay);
}

int DAWrite(unsigned int value) { return Forward<int>(__func__, kDaChip, &DaChip::Write, value); }

int SetDADelayState(unsigned int state) {
  return SwitchNotifier(__func__, &RunnableObjectManager::da_notifier_, &FpgaLogic::DaIrqCtrl,
                        state);
}

}  // extern "C"
