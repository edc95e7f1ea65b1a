#include "Devices/peripheral/RangeLed.h"

#include <cstdio>

#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

STATE Bit(RangeLed::Color color, unsigned int bit) {
  return static_cast<STATE>((color >> bit) & 1u);
}

}  // namespace

RangeLed::RangeLed()
    : pin55_(neighbour::LineNumber(BoardLine::kRangeRed)),
      pin56_(neighbour::LineNumber(BoardLine::kRangeGreen)),
      pin57_(neighbour::LineNumber(BoardLine::kRangeBlue)) {
  if (!SetColor(BLACK)) puts("error: RangeLed SetColor(RangeLed::Color::BLACK) ");
}

bool RangeLed::SetR(STATE state) {
  Trace(__func__);
  return DriveTo(pin55_, state, kRedTexts);
}

bool RangeLed::SetG(STATE state) {
  Trace(__func__);
  return DriveTo(pin56_, state, kGreenTexts);
}

bool RangeLed::SetB(STATE state) {
  Trace(__func__);
  return DriveTo(pin57_, state, kBlueTexts);
}

bool RangeLed::SetColor(Color color) {
  Trace(__func__);
  return SetR(Bit(color, 0)) && SetG(Bit(color, 1)) && SetB(Bit(color, 2));
}

bool RangeLed::DriveTo(const Line& line, STATE state, const GpioLineTexts& texts) const {
  std::string value;
  if (state == kOn) value = high_;
  if (state == kOff) value = low_;
  return Drive(line, value, texts);
}

}  // namespace VeltranoSDK
