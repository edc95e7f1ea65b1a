#include "Devices/peripheral/RangeLed.h"

#include <cstdio>

#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

STATE Bit(RangeLed::Color color, unsigned int bit) {
  return static_cast<STATE>((color >> bit) & 1u);
}

const char* ValueOf(STATE state) {
  if (state == kOn) return SysfsGpio::kHigh;
  return state == kOff ? SysfsGpio::kLow : "";
}

}  // namespace

RangeLed::RangeLed()
    : pin55_(neighbour::LineNumber(BoardLine::kRangeRed), kRedTexts),
      pin56_(neighbour::LineNumber(BoardLine::kRangeGreen), kGreenTexts),
      pin57_(neighbour::LineNumber(BoardLine::kRangeBlue), kBlueTexts) {
  if (!SetColor(BLACK)) puts("error: RangeLed SetColor(RangeLed::Color::BLACK) ");
}

bool RangeLed::SetR(STATE state) {
  Trace(__func__);
  return pin55_.Drive(ValueOf(state));
}

bool RangeLed::SetG(STATE state) {
  Trace(__func__);
  return pin56_.Drive(ValueOf(state));
}

bool RangeLed::SetB(STATE state) {
  Trace(__func__);
  return pin57_.Drive(ValueOf(state));
}

bool RangeLed::SetColor(Color color) {
  Trace(__func__);
  return SetR(Bit(color, 0)) && SetG(Bit(color, 1)) && SetB(Bit(color, 2));
}

}  // namespace VeltranoSDK
